#ifndef TESTS_XML_PARSEREVENTS_HPP
#define TESTS_XML_PARSEREVENTS_HPP

#include <cstddef>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

/** The input and the recorded events of the push parser and its model. */
namespace parsermodel {

/** What a callback does in addition to being recorded. */
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

/** The actions of callbacks, by the number of the event in its document. Other callbacks continue. */
typedef std::map<std::size_t, Action> Script;

/** The exception that a callback throws for Action::Throw. */
struct Thrown
{};

/** Stands for the three separate callbacks where the number of a common callback is expected. */
constexpr int SEPARATE = -1;
/** Common callbacks are numbered: 0 is the one passed to nim_pdsParseInit(), the others are pushed. */
constexpr int COMMON_CALLBACKS = 3;

/** Returns the number of the callback that an event pushes. */
constexpr int pushedCallback(std::size_t event)
{
    return 1 + static_cast<int>(event % (COMMON_CALLBACKS - 1));
}

/** Returns the alternate user data that an event pushes, different for each push. */
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
    /** All entries up to the null pointer, whose number may differ from `numAttributes`. */
    std::vector<std::string> attributes;
    /** Results of the pushes within the callback. */
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
