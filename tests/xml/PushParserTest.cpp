#include "Outcome.hpp"

#include <gmock/gmock.h>

#include <cstring>
#include <stdexcept>
#include <string>

using test::errorOf;
using test::eventsOf;
using test::Lines;
using test::parse;
using test::PushParser;
using test::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(PushParserConstants, HaveTheDocumentedValues)
{
    EXPECT_EQ(PDS_PARSE_CB_TAG_START, 0);
    EXPECT_EQ(PDS_PARSE_CB_TAG_END, 1);
    EXPECT_EQ(PDS_PARSE_CB_DATA, 2);
    EXPECT_EQ(PDS_PARSE_CB_CDATA, 3);
    EXPECT_EQ(PDS_PARSE_F_LAST, 1);
    EXPECT_EQ(PDS_PARSE_F_SKIP_WS, 2);
    EXPECT_EQ(PDS_PARSE_F_NULL_ATTR, 4);
    EXPECT_EQ(PDS_PARSE_OK, 0);
    EXPECT_EQ(PDS_PARSE_E_BAD_HANDLE, 700012001);
    EXPECT_EQ(PDS_PARSE_E_CALLBACK, 700012002);
    EXPECT_EQ(PDS_PARSE_E_SYNTAX, 700012003);
    EXPECT_EQ(PDS_PARSE_E_PREVIOUS, 700012004);
    EXPECT_EQ(PDS_PARSE_E_DONE, 700012005);
    EXPECT_EQ(PDS_PARSE_E_PUSH_CONTEXT, 700012006);
    EXPECT_EQ(PDS_PARSE_E_NO_MEMORY, 700012900);
    EXPECT_EQ(PDS_PARSE_E_BAD_ARGS, 700012901);
}

TEST(PushParserTexts, DetailCodesHaveDescriptions)
{
    EXPECT_STREQ(nim_pdsParseErrorToStr(0), "No error");
    EXPECT_STREQ(nim_pdsParseErrorToStr(1), "Invalid parse handle supplied");
    EXPECT_STREQ(nim_pdsParseErrorToStr(2), "Parse operation was terminated by one of the callbacks");
    EXPECT_STREQ(nim_pdsParseErrorToStr(3), "A syntax error was encountered while parsing");
    EXPECT_STREQ(nim_pdsParseErrorToStr(4), "The parsing operation encountered an error previously");
    EXPECT_STREQ(nim_pdsParseErrorToStr(5), "The parsing operation is completed");
    EXPECT_STREQ(nim_pdsParseErrorToStr(6),
                 "nim_nim_pdsParsePushCommonCB() can only be called from within a Start-Tag callback");
    EXPECT_EQ(nim_pdsParseErrorToStr(7), nullptr);
    EXPECT_EQ(nim_pdsParseErrorToStr(700012003), nullptr);
    EXPECT_EQ(nim_pdsParseErrorToStr(-1), nullptr);
}

TEST(PushParserTexts, ErrorToStringIsTheSameForAll)
{
    char buffer[8] = "before";
    EXPECT_STREQ(nim_pdsErrorToString(0, buffer, sizeof buffer), "Error to String function unimplemented");
    EXPECT_STREQ(nim_pdsErrorToString(700012003, nullptr, 0), "Error to String function unimplemented");
    EXPECT_STREQ(buffer, "before");
}

TEST(PushParserInit, RejectsMissingArguments)
{
    int some = 0;
    PDS_PARSE_H handle = &some;
    EXPECT_EQ(nim_pdsParseInit(0, nullptr, Recorder::tagStart, Recorder::tagEnd, Recorder::data, nullptr,
                               nullptr, nullptr),
              700012901);
    EXPECT_EQ(
        nim_pdsParseInit(0, nullptr, nullptr, Recorder::tagEnd, Recorder::data, nullptr, nullptr, &handle),
        700012901);
    EXPECT_EQ(
        nim_pdsParseInit(0, nullptr, Recorder::tagStart, nullptr, Recorder::data, nullptr, nullptr, &handle),
        700012901);
    EXPECT_EQ(nim_pdsParseInit(0, nullptr, Recorder::tagStart, Recorder::tagEnd, nullptr, nullptr, nullptr,
                               &handle),
              700012901);
    EXPECT_EQ(nim_pdsParseInit(0, nullptr, nullptr, nullptr, nullptr, Recorder::common, nullptr, nullptr),
              700012901);
    EXPECT_EQ(handle, &some);
    ASSERT_EQ(nim_pdsParseInit(0, nullptr, nullptr, nullptr, nullptr, Recorder::common, &some, &handle), 0);
    EXPECT_NE(handle, nullptr);
    EXPECT_NE(handle, &some);
    EXPECT_EQ(std::memcmp(handle, "APDP", 4), 0);
    EXPECT_EQ(nim_pdsParseDestroy(&handle), 0);
    EXPECT_EQ(handle, nullptr);
}

TEST(PushParserInit, MayBeCalledRepeatedly)
{
    EXPECT_EQ(ipdsParseInit(), 0);
    EXPECT_EQ(ipdsParseInit(), 0);
    nim_pdsParseTrcInit(7);
    EXPECT_THAT(eventsOf("<a/>"), ElementsAre("start a a", "end a a"));
}

TEST(PushParserHandle, InvalidHandleIsRejectedByEveryFunction)
{
    char text[] = "<a/>";
    std::vector<char> stranger(1024, 'x');
    EXPECT_EQ(nim_pdsParseBuffer(nullptr, 1, stranger.data()), 700012901);
    EXPECT_EQ(nim_pdsParseBuffer(text, 1, nullptr), 700012901);
    EXPECT_EQ(nim_pdsParseBuffer(text, 1, stranger.data()), 700012001);
    EXPECT_EQ(nim_pdsParseReset(0, nullptr, nullptr), 700012901);
    EXPECT_EQ(nim_pdsParseReset(0, nullptr, stranger.data()), 700012001);
    EXPECT_EQ(nim_pdsParseDestroy(nullptr), 700012901);
    PDS_PARSE_H handle = stranger.data();
    EXPECT_EQ(nim_pdsParseDestroy(&handle), 700012001);
    EXPECT_EQ(handle, stranger.data());
    EXPECT_STREQ(nim_pdsParseGetErrorInfo(nullptr), "Null ParseHandle");
    EXPECT_STREQ(nim_pdsParseGetErrorInfo(stranger.data()), "Invalid ParseHandle");
    EXPECT_EQ(nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0, stranger.data()), 700012001);
    EXPECT_EQ(nim_pdsParsePushCommonCB(Recorder::common, nullptr, 0, nullptr), 700012901);
}

TEST(PushParserBuffers, EmptyDocumentsSucceedWithoutAnEvent)
{
    EXPECT_THAT(eventsOf(""), IsEmpty());
    EXPECT_THAT(eventsOf(" \t\r\n\v\f"), IsEmpty());
    EXPECT_THAT(eventsOf("<?xml version=\"1.0\"?>\n<!-- a -- b --> <!DOCTYPE a [<!ENTITY x \"y\">]>\n<?pi?>"),
                IsEmpty());
}

TEST(PushParserBuffers, DocumentMayBeSplitAnywhere)
{
    const std::string text = "<a b=\"1&amp;2\">x&lt;y<!-- c --><d/><![CDATA[e]]></a>";
    const Lines whole = eventsOf(text);
    EXPECT_THAT(whole, ElementsAre("start a a b=[1&2]", "data a [x<y]", "start d a/d", "end d a/d",
                                   "cdata a [e]", "end a a"));
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        Recorder recorder;
        PushParser parser(recorder);
        ASSERT_EQ(parser.push(text.substr(0, cut)), 0);
        EXPECT_THAT(recorder.events, IsEmpty());
        ASSERT_EQ(parser.parse(text.substr(cut)), 0);
        EXPECT_EQ(recorder.events, whole) << "cut at " << cut;
    }
}

TEST(PushParserBuffers, GrowAsPiecesAreAppended)
{
    Recorder recorder;
    PushParser parser(recorder);
    ASSERT_EQ(parser.push("<a>"), 0);
    std::string all;
    for (int i = 0; i < 10000; ++i) {
        const std::string piece = std::to_string(i) + ",";
        all += piece;
        ASSERT_EQ(parser.push(piece), 0);
    }
    ASSERT_EQ(parser.parse("</a>"), 0);
    EXPECT_THAT(recorder.events, ElementsAre("start a a", "data a [" + all + "]", "end a a"));
}

TEST(PushParserBuffers, FillToTheLastByte)
{
    for (std::size_t size : {2040U, 2046U, 2047U, 2048U, 2049U, 4096U}) {
        Recorder recorder;
        PushParser parser(recorder);
        const std::string inner(size - 7, 'x');
        ASSERT_EQ(parser.push("<a>" + inner), 0);
        ASSERT_EQ(parser.push("</a"), 0);
        ASSERT_EQ(parser.parse(">"), 0);
        EXPECT_THAT(recorder.events, ElementsAre("start a a", "data a [" + inner + "]", "end a a"));
    }
}

TEST(PushParserBuffers, AreRejectedOnceDoneOrFailed)
{
    Recorder recorder;
    PushParser parser(recorder);
    ASSERT_EQ(parser.push("<a>"), 0);
    ASSERT_EQ(parser.parse("</a>"), 0);
    EXPECT_EQ(parser.parse("<b/>"), 700012005);
    EXPECT_EQ(parser.push("<b/>"), 700012005);
    ASSERT_EQ(nim_pdsParseReset(0, &recorder, parser.handle), 0);
    EXPECT_EQ(parser.parse("x"), 700012003);
    EXPECT_EQ(parser.parse("<b/>"), 700012004);
    EXPECT_EQ(parser.push(""), 700012004);
    EXPECT_EQ(parser.error(), "Invalid data contained outside a top-level Element -- near offset 0: x...");
    ASSERT_EQ(nim_pdsParseReset(0, &recorder, parser.handle), 0);
    EXPECT_EQ(parser.error(), "");
    EXPECT_EQ(parser.parse("<b/>"), 0);
    EXPECT_THAT(recorder.events, ElementsAre("start a a", "end a a", "start b b", "end b b"));
}

TEST(PushParserBuffers, EmptyLastPieceCompletesTheDocument)
{
    Recorder recorder;
    PushParser parser(recorder);
    EXPECT_EQ(parser.parse(""), 0);
    EXPECT_EQ(parser.parse("<a/>"), 700012005);
}

TEST(PushParserStop, AnyCallbackCanStopTheParse)
{
    const std::string text = "<a>x<![CDATA[y]]><b/></a>";
    const Lines all = eventsOf(text);
    ASSERT_EQ(all.size(), 6U);
    for (bool common : {false, true}) {
        for (int answer : {1, -1, 42}) {
            for (std::size_t stop = 1; stop <= all.size(); ++stop) {
                Recorder recorder;
                recorder.stopAt = stop;
                recorder.answer = answer;
                PushParser parser(recorder, common);
                EXPECT_EQ(parser.parse(text), 700012002);
                EXPECT_EQ(recorder.events.size(), stop);
                EXPECT_EQ(parser.error(), "");
                EXPECT_EQ(parser.parse(text), 700012004);
            }
        }
    }
}

TEST(PushParserStop, ExceptionFromACallbackPropagates)
{
    struct Thrower
    {
        static int start(void*, char*, char*, std::size_t, char**)
        {
            throw std::runtime_error("from a callback");
        }
    };
    Recorder recorder;
    PDS_PARSE_H handle = nullptr;
    ASSERT_EQ(nim_pdsParseInit(0, &recorder, Thrower::start, Recorder::tagEnd, Recorder::data, nullptr,
                               nullptr, &handle),
              0);
    char text[] = "<a/>";
    EXPECT_THROW(nim_pdsParseBuffer(text, 1, handle), std::runtime_error);
    EXPECT_EQ(nim_pdsParseBuffer(text, 1, handle), 700012005);
    ASSERT_EQ(nim_pdsParseReset(0, nullptr, handle), 0);
    EXPECT_THROW(nim_pdsParseBuffer(text, 1, handle), std::runtime_error);
    EXPECT_EQ(nim_pdsParseDestroy(&handle), 0);
}

TEST(PushParserReset, LastDocumentDoesNotLeakIntoTheNext)
{
    Recorder recorder;
    PushParser parser(recorder);
    ASSERT_EQ(parser.parse("<first><second a=\"1\">text that is long enough -->]]>?>"), 700012003);
    recorder.events.clear();
    ASSERT_EQ(nim_pdsParseReset(0, &recorder, parser.handle), 0);
    ASSERT_EQ(parser.parse("<a/>"), 0);
    EXPECT_THAT(recorder.events, ElementsAre("start a a", "end a a"));

    for (const char* open : {"<!-- x", "<a><![CDATA[x", "<a><!-- x", "<a><!", "<?x", "<!DOCTYPE a"}) {
        ASSERT_EQ(nim_pdsParseReset(0, &recorder, parser.handle), 0);
        EXPECT_EQ(parser.parse(open), 700012003) << open;
        EXPECT_EQ(parser.error().find("long"), std::string::npos) << parser.error();
    }
}

TEST(PushParserReset, ReplacesTheUserData)
{
    Recorder first;
    Recorder second;
    PushParser parser(first);
    ASSERT_EQ(parser.parse("<a/>"), 0);
    ASSERT_EQ(nim_pdsParseReset(0, &second, parser.handle), 0);
    ASSERT_EQ(parser.parse("<b/>"), 0);
    EXPECT_THAT(first.events, ElementsAre("start a a", "end a a"));
    EXPECT_THAT(second.events, ElementsAre("start b b", "end b b"));
}

TEST(PushParserErrors, ContainTheOffsetAndSixteenBytes)
{
    EXPECT_EQ(errorOf("<a>ok</a>\n0123456789abcdefghij"),
              "Invalid data contained outside a top-level Element -- near offset 10: 0123456789abcdef...");
    EXPECT_EQ(errorOf("<a>" + std::string(20, ' ') + "<b>"),
              "Premature end of data stream (not at top-level) -- near offset 16:        ")
        << "the start of an element at the very end is marked at its name";
}

TEST(PushParserSize, HostileDocumentsTakeLinearTime)
{
    // Each of these would take minutes in quadratic time.
    std::string attributes = "<a";
    for (int i = 0; i < 200000; ++i) {
        attributes += " n" + std::to_string(i) + "=\"\"";
    }
    EXPECT_EQ(eventsOf(attributes + "/>").size(), 2U);

    const std::string longName(1000000, 'r');
    std::string children = "<" + longName + ">";
    for (int i = 0; i < 200000; ++i) {
        children += "<b/>";
    }
    std::size_t count = 0;
    const auto counted = [](PDS_PARSE_H, pds_parse_cb_type_e, void* context, void*, char*, char*, char*,
                            std::size_t, char**) {
        ++*static_cast<std::size_t*>(context);
        return 0;
    };
    const auto count_events = [&](const std::string& text, int flags = 0) {
        count = 0;
        PDS_PARSE_H handle = nullptr;
        EXPECT_EQ(nim_pdsParseInit(0, &count, nullptr, nullptr, nullptr, counted, nullptr, &handle), 0);
        EXPECT_EQ(nim_pdsParseBuffer(const_cast<char*>(text.c_str()), flags | PDS_PARSE_F_LAST, handle), 0);
        EXPECT_EQ(nim_pdsParseDestroy(&handle), 0);
        return count;
    };
    EXPECT_EQ(count_events(children + "</" + longName + ">"), 400002U);

    std::string deep;
    for (int i = 0; i < 1000000; ++i) {
        deep += "<a>";
    }
    for (int i = 0; i < 1000000; ++i) {
        deep += "</a>";
    }
    EXPECT_EQ(count_events(deep), 2000000U);

    std::string symbols = "<a>";
    for (int i = 0; i < 1000000; ++i) {
        symbols += "&amp;";
    }
    EXPECT_EQ(count_events(symbols + "</a>"), 3U);
}
