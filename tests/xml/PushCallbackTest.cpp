#include "Recorder.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

using test::PushParser;
using test::Recorder;
using testing::ElementsAre;

namespace {

/**
 * Pushes common callbacks at the start of chosen elements, and records which callback receives which event.
 */
class Pusher
{
public:
    /** Element names, each with the name of the callback that is pushed at its start. */
    std::map<std::string, std::string> pushes;
    std::vector<std::string> events;
    /** Results of the pushes. */
    std::vector<int> results;
    int pushesPerStart = 1;
    bool passesCodeOn = false;

    static int separateStart(void* context, char* tag, char*, std::size_t, char**)
    {
        return of(context).start("separate", tag);
    }
    static int separateEnd(void* context, char* tag, char*)
    {
        of(context).events.push_back("separate end " + std::string(tag));
        return 0;
    }
    static int separateData(void* context, int, char* data, char*)
    {
        of(context).events.push_back("separate data " + std::string(data));
        return 0;
    }
    static int common(PDS_PARSE_H, pds_parse_cb_type_e type, void* userData, void* userDataAlt, char* tag,
                      char*, char* data, std::size_t, char**)
    {
        Pusher& pusher = of(userData);
        const std::string who =
            userDataAlt == userData ? "original" : *static_cast<const std::string*>(userDataAlt);
        switch (type) {
        case PDS_PARSE_CB_TAG_START:
            return pusher.start(who, tag);
        case PDS_PARSE_CB_TAG_END:
            pusher.events.push_back(who + " end " + tag);
            break;
        case PDS_PARSE_CB_DATA:
            pusher.events.push_back(who + " data " + data);
            break;
        case PDS_PARSE_CB_CDATA:
            pusher.events.push_back(who + " cdata " + data);
            break;
        }
        return 0;
    }

    void init(bool withCommon)
    {
        ASSERT_EQ(nim_pdsParseInit(0, this, separateStart, separateEnd, separateData,
                                   withCommon ? common : nullptr, nullptr, &handle),
                  0);
    }
    int parse(const std::string& text)
    {
        return nim_pdsParseBuffer(const_cast<char*>(text.c_str()), PDS_PARSE_F_LAST, handle);
    }
    ~Pusher()
    {
        nim_pdsParseDestroy(&handle);
    }

    PDS_PARSE_H handle = nullptr;

private:
    static Pusher& of(void* context)
    {
        return *static_cast<Pusher*>(context);
    }
    int start(const std::string& who, const std::string& tag)
    {
        events.push_back(who + " start " + tag);
        const auto push = pushes.find(tag);
        for (int i = 0; push != pushes.end() && i < pushesPerStart; ++i) {
            results.push_back(nim_pdsParsePushCommonCB(common, &push->second, 0, handle));
        }
        return passesCodeOn && !results.empty() ? results.back() : 0;
    }
};

}

TEST(PushCommonCallback, ReceivesContentAndEndOfTheElement)
{
    Pusher pusher;
    pusher.pushes["b"] = "pushed";
    pusher.init(false);
    EXPECT_EQ(pusher.parse("<a>1<b>2<c>3</c><![CDATA[4]]></b>5</a>"), 0);
    EXPECT_THAT(pusher.results, ElementsAre(0));
    EXPECT_THAT(pusher.events,
                ElementsAre("separate start a", "separate data 1", "separate start b", "pushed data 2",
                            "pushed start c", "pushed data 3", "pushed end c", "pushed cdata 4",
                            "pushed end b", "separate data 5", "separate end a"));
}

TEST(PushCommonCallback, AppliesToEmptyElementsAndToTheRoot)
{
    Pusher pusher;
    pusher.pushes["a"] = "first";
    pusher.pushes["b"] = "second";
    pusher.init(true);
    EXPECT_EQ(pusher.parse("<a><b/>x</a>"), 0);
    EXPECT_THAT(pusher.results, ElementsAre(0, 0));
    EXPECT_THAT(pusher.events, ElementsAre("original start a", "first start b", "second end b",
                                           "first data x", "first end a"));
}

TEST(PushCommonCallback, NestsBeyondTheInitialStackCapacity)
{
    Pusher pusher;
    std::string text;
    std::string closing;
    for (int i = 0; i < 65; ++i) {
        const std::string name = "n" + std::to_string(i) + "n";
        pusher.pushes[name] = name;
        text += "<" + name + ">";
        closing = "</" + name + ">" + closing;
    }
    pusher.init(false);
    EXPECT_EQ(pusher.parse(text + "x" + closing), 0);
    ASSERT_EQ(pusher.events.size(), 131U);
    EXPECT_EQ(pusher.events[0], "separate start n0n");
    EXPECT_EQ(pusher.events[64], "n63n start n64n");
    EXPECT_EQ(pusher.events[65], "n64n data x");
    EXPECT_EQ(pusher.events[66], "n64n end n64n");
    EXPECT_EQ(pusher.events[130], "n0n end n0n");
}

TEST(PushCommonCallback, SecondPushEndsTheParseWithItsCodeWhateverTheCallbackReturns)
{
    for (bool passesCodeOn : {false, true}) {
        Pusher pusher;
        pusher.pushes["a"] = "pushed";
        pusher.pushesPerStart = 2;
        pusher.passesCodeOn = passesCodeOn;
        pusher.init(true);
        const int code = pusher.parse("<a>x</a>");
        EXPECT_THAT(pusher.results, ElementsAre(0, 700012006));
        EXPECT_THAT(pusher.events, ElementsAre("original start a"));
        EXPECT_EQ(code, 700012006);
        EXPECT_EQ(pusher.parse(""), 700012004);
    }
}

TEST(PushCommonCallback, PushOutsideAStartCallbackEndsTheParse)
{
    struct Late
    {
        PDS_PARSE_H handle = nullptr;
        int result = 0;
        int events = 0;

        static int start(void* context, char*, char*, std::size_t, char**)
        {
            ++static_cast<Late*>(context)->events;
            return 0;
        }
        static int end(void* context, char*, char*)
        {
            Late& late = *static_cast<Late*>(context);
            ++late.events;
            late.result = nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0, late.handle);
            return 0;
        }
        static int data(void*, int, char*, char*)
        {
            return 0;
        }
    };
    Late late;
    ASSERT_EQ(nim_pdsParseInit(0, &late, Late::start, Late::end, Late::data, nullptr, nullptr, &late.handle),
              0);
    char text[] = "<a><b/><c/></a>";
    EXPECT_EQ(nim_pdsParseBuffer(text, 1, late.handle), 700012006);
    EXPECT_EQ(late.result, 700012006);
    EXPECT_EQ(late.events, 3);

    // A push while no parse is running fails, and the next parse ends at its first callback.
    ASSERT_EQ(nim_pdsParseReset(0, &late, late.handle), 0);
    late.events = 0;
    EXPECT_EQ(nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0, late.handle), 700012006);
    EXPECT_EQ(nim_pdsParseBuffer(text, 1, late.handle), 700012006);
    EXPECT_EQ(late.events, 1);
    EXPECT_EQ(nim_pdsParseDestroy(&late.handle), 0);
}

TEST(PushCommonCallback, CallbackResultTakesPrecedenceOverAPushOutsideAStartCallback)
{
    struct Late
    {
        PDS_PARSE_H handle = nullptr;

        static int start(void*, char*, char*, std::size_t, char**)
        {
            return 0;
        }
        static int end(void* context, char*, char*)
        {
            nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0, static_cast<Late*>(context)->handle);
            return nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0,
                                            static_cast<Late*>(context)->handle);
        }
        static int data(void*, int, char*, char*)
        {
            return 0;
        }
    };
    Late late;
    ASSERT_EQ(nim_pdsParseInit(0, &late, Late::start, Late::end, Late::data, nullptr, nullptr, &late.handle),
              0);
    char text[] = "<a/>";
    EXPECT_EQ(nim_pdsParseBuffer(text, 1, late.handle), 700012002);
    EXPECT_EQ(nim_pdsParseDestroy(&late.handle), 0);
}

TEST(PushCommonCallback, NullArgumentsAreRejectedBeforeTheHandleIsRead)
{
    Recorder recorder;
    PushParser parser(recorder);
    EXPECT_EQ(nim_pdsParsePushCommonCB(nullptr, nullptr, 0, parser.handle), 700012901);
    EXPECT_EQ(nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0, nullptr), 700012901);
    EXPECT_EQ(nim_pdsParsePushCommonCB(nullptr, nullptr, 0, nullptr), 700012901);
    EXPECT_EQ(parser.parse("<a/>"), 0) << "the handle was not touched";

    // Neither a handle nor readable memory.
    std::vector<char> stranger(512, 'x');
    EXPECT_EQ(nim_pdsParsePushCommonCB(nullptr, nullptr, 0, stranger.data()), 700012901);
    EXPECT_THAT(stranger, testing::Each('x'));
    EXPECT_EQ(nim_pdsParsePushCommonCB(nullptr, nullptr, 0, reinterpret_cast<PDS_PARSE_H>(1)), 700012901);
}

namespace {

/** Resets its handle at a chosen event, with other user data for the next document. */
class Resetter
{
public:
    explicit Resetter(std::size_t resetEvent, int callbackAnswer = 0)
        : resetAt(resetEvent), answer(callbackAnswer)
    {
        EXPECT_EQ(nim_pdsParseInit(0, &first, nullptr, nullptr, nullptr, common, nullptr, &handle), 0);
    }
    ~Resetter()
    {
        nim_pdsParseDestroy(&handle);
    }
    Resetter(const Resetter&) = delete;
    Resetter& operator=(const Resetter&) = delete;

    int parse(const std::string& text)
    {
        return nim_pdsParseBuffer(const_cast<char*>(text.c_str()), PDS_PARSE_F_LAST, handle);
    }

    /** Events of the first document and of the document after the reset. */
    const std::vector<std::string>& events() const
    {
        return first.events;
    }
    const std::vector<std::string>& laterEvents() const
    {
        return second.events;
    }

    PDS_PARSE_H handle = nullptr;
    bool throws = false;

private:
    struct Context
    {
        Resetter& owner;
        std::vector<std::string> events;
    };

    static int common(PDS_PARSE_H, pds_parse_cb_type_e, void* userData, void*, char*, char* fullTag,
                      char* data, std::size_t, char**)
    {
        Context& context = *static_cast<Context*>(userData);
        Resetter& self = context.owner;
        context.events.push_back(std::string(fullTag) + (data != nullptr ? std::string(" ") + data : ""));
        return &context == &self.first && context.events.size() == self.resetAt ? self.reset() : 0;
    }

    int reset()
    {
        EXPECT_EQ(nim_pdsParseReset(0, nullptr, handle), 0);
        EXPECT_EQ(nim_pdsParseReset(0, &second, handle), 0);
        EXPECT_EQ(parse("<no/>"), 700012005);
        if (throws) {
            throw std::runtime_error("from a callback");
        }
        return answer;
    }

    const std::size_t resetAt;
    const int answer;
    Context first{*this, {}};
    Context second{*this, {}};
};

}

TEST(PushParserResetInACallback, TakesEffectWhenTheParseHasEnded)
{
    for (const std::size_t event : {1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
        Resetter resetter(event);
        EXPECT_EQ(resetter.parse("<a>1<b>2<c/></b>3</a>"), 0);
        EXPECT_THAT(resetter.events(),
                    ElementsAre("a", "a 1", "a/b", "a/b 2", "a/b/c", "a/b/c", "a/b", "a 3", "a"))
            << event;
        EXPECT_EQ(resetter.parse("<d>4</d>"), 0) << event;
        EXPECT_THAT(resetter.laterEvents(), ElementsAre("d", "d 4", "d"));
    }
}

TEST(PushParserResetInACallback, ParseReturnsItsOwnResultAndTheHandleIsReady)
{
    Resetter stopped(2, 9);
    EXPECT_EQ(stopped.parse("<a><b/></a>"), 700012002);
    EXPECT_EQ(stopped.parse("<c/>"), 0);
    EXPECT_THAT(stopped.laterEvents(), ElementsAre("c", "c"));

    Resetter malformed(1);
    EXPECT_EQ(malformed.parse("<a><b"), 700012003);
    EXPECT_STREQ(nim_pdsParseGetErrorInfo(malformed.handle), "");
    EXPECT_EQ(malformed.parse("<c/>"), 0);
    EXPECT_THAT(malformed.laterEvents(), ElementsAre("c", "c"));

    Resetter thrower(1);
    thrower.throws = true;
    EXPECT_THROW(thrower.parse("<a><b/></a>"), std::runtime_error);
    EXPECT_EQ(thrower.parse("<c/>"), 0);
    EXPECT_THAT(thrower.laterEvents(), ElementsAre("c", "c"));
}

TEST(PushCommonCallback, IsRemovedByReset)
{
    Pusher pusher;
    pusher.pushes["a"] = "pushed";
    pusher.init(true);
    EXPECT_EQ(pusher.parse("<a><b>"), 700012003);
    ASSERT_EQ(nim_pdsParseReset(0, &pusher, pusher.handle), 0);
    pusher.events.clear();
    EXPECT_EQ(pusher.parse("<c>x</c>"), 0);
    EXPECT_THAT(pusher.events, ElementsAre("original start c", "original data x", "original end c"));
}

TEST(PushCommonCallback, NullAttributeIsReportedToTheCurrentCallback)
{
    Pusher pusher;
    pusher.pushes["a"] = "pushed";
    pusher.init(false);
    char text[] = "<a NULL=\"\"><b NULL=\"\"/></a>";
    EXPECT_EQ(nim_pdsParseBuffer(text, PDS_PARSE_F_LAST | PDS_PARSE_F_NULL_ATTR, pusher.handle), 0);
    EXPECT_THAT(pusher.events, ElementsAre("separate start a", "pushed data ", "pushed start b",
                                           "pushed end b", "pushed end a"));
}
