#ifndef TESTS_XML_PARSEREVENTS_HPP
#define TESTS_XML_PARSEREVENTS_HPP

#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

/** What the push parser and its model are told to do, and what they tell. */
namespace parsermodel {

/** What a callback does besides being recorded. */
enum class Action {
    GoOn,
    Stop,
    Throw,
    Push,
    PushTwice,
    PushNull,
    Reset,
    PushTwiceAndStop,
};

/** What the callback of an event does, by the event's number in its document; the others go on. */
typedef std::map<std::size_t, Action> Script;

/** What a callback throws that is told to. */
struct Thrown
{};

/** The three separate callbacks, in the place of a common callback's number. */
constexpr int SEPARATE = -1;
/** The common callbacks are numbered from 0, the one given at init; the others are pushed. */
constexpr int COMMON_CALLBACKS = 3;

/** Which callback an event pushes. */
constexpr int pushedCallback(std::size_t event)
{
    return 1 + static_cast<int>(event % (COMMON_CALLBACKS - 1));
}

/** With what alternate user data, which tells the pushes apart. */
constexpr std::uintptr_t pushedUserData(std::size_t event)
{
    return 1000 + event;
}

/** One call of a callback, with every argument. */
struct Event
{
    int callback = SEPARATE;
    int type = 0;
    std::uintptr_t userData = 0;
    std::uintptr_t userDataAlt = 0;
    std::string tag;
    std::string fullTag;
    bool hasData = false;
    std::string data;
    std::size_t numAttributes = 0;
    bool hasAttributes = false;
    /** All up to the null pointer, which need not be as many as are told. */
    std::vector<std::string> attributes;
    /** What the pushes within the callback returned. */
    std::vector<int> pushes;

    bool operator==(const Event& other) const
    {
        return callback == other.callback && type == other.type && userData == other.userData
               && userDataAlt == other.userDataAlt && tag == other.tag && fullTag == other.fullTag
               && hasData == other.hasData && data == other.data && numAttributes == other.numAttributes
               && hasAttributes == other.hasAttributes && attributes == other.attributes
               && pushes == other.pushes;
    }
};

inline std::ostream& operator<<(std::ostream& os, const Event& event)
{
    os << "callback " << event.callback << " type " << event.type << " data " << event.userData << ", "
       << event.userDataAlt << " tag '" << event.tag << "' path '" << event.fullTag << "' ";
    if (event.hasData) {
        os << "text '" << event.data << "' ";
    }
    os << (event.hasAttributes ? "array of " : "no array, ") << event.numAttributes << ":";
    for (const std::string& entry : event.attributes) {
        os << " '" << entry << "'";
    }
    for (const int result : event.pushes) {
        os << " push: " << result;
    }
    return os;
}

}

#endif
