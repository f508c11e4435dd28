#include "Listener.hpp"

#include <dalnim/sys/SysError.hpp>
#include <dalnim/xml/Parser.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

using com::kor::dal::nim::String;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::xml::Attributes;
using com::kor::dal::nim::xml::ConsumerRef;
using com::kor::dal::nim::xml::Parser;
using test::Listener;
using test::ListenerRef;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ParserTest : public testing::Test
{
protected:
    ParserTest() : listener(new Listener), consumer(listener), parser(consumer) {}

    /** Returns the error number and the message of a failed parse. */
    template <class Document>
    std::pair<int, String> failureOf(Document&& document)
    {
        try {
            parser.parse(document, 1);
        } catch (const system_error& error) {
            return {error.error(), error.what()};
        }
        return {0, "no failure"};
    }

    ListenerRef listener;
    ConsumerRef consumer;
    Parser parser;
};

using Failure = std::pair<int, String>;

}

TEST_F(ParserTest, EmptyDocumentStillPassesTheIdentifier)
{
    EXPECT_EQ(listener->getDocumentId(), 0);
    parser.parse(String(), 1);
    EXPECT_THAT(listener->events(), IsEmpty());
    EXPECT_EQ(listener->getDocumentId(), 1);
}

TEST_F(ParserTest, OnlyTheFirstIdentifierReachesTheConsumer)
{
    parser.parse("<a/>", 17);
    parser.parse("<b/>", 2);
    EXPECT_EQ(listener->getDocumentId(), 17);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "end a a", "begin b b", "end b b"));
}

TEST_F(ParserTest, DeliversTagsAttributesAndText)
{
    parser.parse("<a x=\"1\"><b/>text</a>", 1);
    EXPECT_THAT(listener->events(),
                ElementsAre("begin a a x=[1]", "begin b a/b", "end b a/b", "data a a [text]", "end a a"));
}

TEST_F(ParserTest, IdentifierDefaultsToZero)
{
    parser.parse("<a/>");
    std::istringstream stream("<b/>");
    parser.parse(stream);
    EXPECT_EQ(listener->getDocumentId(), 0);
    EXPECT_EQ(listener->events().size(), 4U);
}

TEST_F(ParserTest, TextBelongsToItsEnclosingElement)
{
    parser.parse("<a><b><![CDATA[1]]></b>2<c>&lt;</c></a>", 1);
    EXPECT_THAT(listener->events(),
                ElementsAre("begin a a", "begin b a/b", "cdata b a/b [1]", "end b a/b", "data a a [2]",
                            "begin c a/c", "data c a/c [<]", "end c a/c", "end a a"));
}

TEST_F(ParserTest, WhiteSpaceTextIsNotReported)
{
    parser.parse("<a>\n  <b> </b>\n</a>\n", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "begin b a/b", "end b a/b", "end a a"));
}

TEST_F(ParserTest, DocumentEndsAtItsFirstNul)
{
    parser.parse(String("<a/>\0<b/>", 9), 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "end a a"));
}

TEST_F(ParserTest, SyntaxErrorContainsMessageAndOffset)
{
    EXPECT_EQ(
        failureOf("<a></a>x"),
        Failure(700012003, "Invalid data contained outside a top-level Element -- near offset 7: x..."));
    EXPECT_EQ(failureOf("<a></b>"), Failure(700012003, "Mismatched End Tag -- near offset 5: b"))
        << "cut at the NUL that ended the name";
    EXPECT_EQ(failureOf("<a><!-- x"), Failure(700012003, "Comment not terminated -- near offset 3: "));
    listener->clear();
    parser.parse("<good/>", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin good good", "end good good"));
}

TEST_F(ParserTest, ReturningFalseStopsTheParse)
{
    listener->answer = [](const std::string& line) { return line != "begin b a/b"; };
    EXPECT_EQ(failureOf("<a><b/><c/></a>"), Failure(700012002, "Error to String function unimplemented"));
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "begin b a/b"));
    listener->answer = [](const std::string& line) { return line.substr(0, 4) != "data"; };
    EXPECT_EQ(failureOf("<a>x</a>"), Failure(700012002, "Error to String function unimplemented"));
    listener->answer = [](const std::string& line) { return line.substr(0, 3) != "end"; };
    EXPECT_EQ(failureOf("<a>x</a>"), Failure(700012002, "Error to String function unimplemented"));
    listener->answer = nullptr;
    listener->clear();
    parser.parse("<d/>", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin d d", "end d d"));
}

TEST_F(ParserTest, ExceptionFromTheConsumerPropagates)
{
    listener->answer = [](const std::string& line) -> bool {
        if (line == "begin b a/b") {
            throw std::domain_error("from the consumer");
        }
        return true;
    };
    try {
        parser.parse("<a><b/></a>", 1);
        FAIL();
    } catch (const std::domain_error& error) {
        EXPECT_STREQ(error.what(), "from the consumer");
    }
    listener->answer = nullptr;
    listener->clear();
    parser.parse("<d/>", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin d d", "end d d"));
}

TEST_F(ParserTest, ConsumerIsKeptAliveDuringItsCallbacks)
{
    // Three references: the test's two and the parser's; a fourth is held during the call.
    std::vector<unsigned> counts;
    listener->answer = [&](const std::string&) {
        counts.push_back(listener->refCount());
        return true;
    };
    parser.parse("<a>x</a>", 1);
    EXPECT_THAT(counts, ElementsAre(4U, 4U, 4U));
    EXPECT_EQ(listener->refCount(), 3U);
}

TEST_F(ParserTest, ConsumerMayUseAnotherParser)
{
    ListenerRef inner(new Listener);
    ConsumerRef innerConsumer(inner);
    listener->answer = [&](const std::string& line) {
        if (line.substr(0, 4) == "data") {
            Parser nested(innerConsumer);
            nested.parse("<n/>", 5);
        }
        return true;
    };
    parser.parse("<a>1<b/>2</a>", 1);
    EXPECT_EQ(inner->events().size(), 4U);
    EXPECT_EQ(listener->events().size(), 6U);
}

TEST_F(ParserTest, NestedParseOnTheSameParserThrowsAndTheOuterParseContinues)
{
    Failure inner;
    listener->answer = [&](const std::string& line) {
        if (line == "begin b a/b") {
            inner = failureOf(String("<n>long enough to need another buffer</n>"));
        }
        return true;
    };
    parser.parse("<a>1<b>2</b>3</a>", 1);
    EXPECT_EQ(inner, Failure(700012005, "Error to String function unimplemented"));
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "data a a [1]", "begin b a/b", "data b a/b [2]",
                                                "end b a/b", "data a a [3]", "end a a"));
    listener->clear();
    parser.parse("<d/>", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin d d", "end d d"));
}

TEST_F(ParserTest, PartialEndTagLeavesTheRestOfTheName)
{
    parser.parse("<a><xyb>1</b>2</x>", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "begin xyb a/xyb", "data xyb a/xyb [1]",
                                                "end b a/xyb", "data x a/x [2]", "end x a/x"));
}

TEST_F(ParserTest, NulFromAReferenceEndsTextsAndValues)
{
    parser.parse("<a b='1&#0;2'>3&#0;4<![CDATA[&#0;]]></a>", 1);
    EXPECT_THAT(listener->events(),
                ElementsAre("begin a a b=[1]", "data a a [3]", "cdata a a [&#0;]", "end a a"));
}

TEST_F(ParserTest, ElementReceivesOnlyItsOwnAttributes)
{
    String many = "<d";
    String line = "begin d a/d";
    for (const char* name : {"k1", "k2", "k3", "k4", "k5", "k6", "k7", "k8", "k9"}) {
        many += " " + String(name) + "='" + name + "'";
        line += " " + String(name) + "=[" + name + "]";
    }
    parser.parse("<a x='1' y='long &amp; short'><b y='&lt;' x=''/><c z='\n'/>" + many + "/><c/></a>", 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a x=[1] y=[long & short]", "begin b a/b y=[<] x=[]",
                                                "end b a/b", "begin c a/c z=[ ]", "end c a/c", line,
                                                "end d a/d", "begin c a/c", "end c a/c", "end a a"));
}

TEST_F(ParserTest, NameOfAnElementIsKnownAfterDeeperLevels)
{
    String text;
    for (int level = 1; level <= 12; ++level) {
        text += "<e" + std::to_string(level) + ">";
    }
    for (int level = 12; level >= 1; --level) {
        text += std::to_string(level) + "</e" + std::to_string(level) + ">";
    }
    parser.parse(text, 1);
    ASSERT_EQ(listener->events().size(), 36U);
    String path = "e1/e2/e3/e4/e5/e6/e7/e8/e9/e10/e11/e12";
    for (std::size_t level = 12; level >= 1; --level) {
        const String tag = "e" + std::to_string(level);
        const std::size_t event = 12 + 2 * (12 - level);
        EXPECT_EQ(listener->events()[event], "data " + tag + " " + path + " [" + std::to_string(level) + "]");
        EXPECT_EQ(listener->events()[event + 1], "end " + tag + " " + path);
        path.erase(path.size() - std::min(path.size(), tag.size() + 1));
    }
}

TEST(ParserSize, AnEventCostsTheSameAtAnyDepth)
{
    // Would take minutes if each event copied the path.
    class Counter : public com::kor::dal::nim::xml::Consumer
    {
    public:
        std::size_t events = 0;
        std::size_t longest = 0;

        bool elementBegin(const String&, const String& fullTag, const Attributes&) override
        {
            return count(fullTag);
        }
        bool elementEnd(const String&, const String& fullTag) override
        {
            return count(fullTag);
        }
        bool elementProcessData(const String& tag, const String& fullTag, const String&, bool) override
        {
            return tag == "a" && count(fullTag);
        }

    private:
        bool count(const String& fullTag)
        {
            ++events;
            longest = std::max(longest, fullTag.size());
            return true;
        }
    };
    constexpr std::size_t DEPTH = 500000;
    String text;
    for (std::size_t i = 0; i < DEPTH; ++i) {
        text += "<a>x";
    }
    for (std::size_t i = 0; i < DEPTH; ++i) {
        text += "</a>";
    }
    com::kor::dal::nim::mem::RcoRef<Counter> counter(new Counter);
    ConsumerRef consumer(counter);
    Parser parser(consumer);
    parser.parse(text, 1);
    EXPECT_EQ(counter->events, 3 * DEPTH);
    EXPECT_EQ(counter->longest, 2 * DEPTH - 1);
}

TEST_F(ParserTest, ReadsAStreamToItsEnd)
{
    const String text(5000, 'x');
    std::istringstream stream("<a>" + text + "</a>");
    parser.parse(stream, 3);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "data a a [" + text + "]", "end a a"));
    EXPECT_TRUE(stream.eof());
    EXPECT_EQ(listener->getDocumentId(), 3);
}

TEST_F(ParserTest, ReadsAStreamFromItsCurrentPosition)
{
    std::istringstream stream("skipped <a/>");
    String word;
    stream >> word;
    parser.parse(stream, 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "end a a"));
}

TEST_F(ParserTest, AnEmptyOrFinishedStreamIsAnEmptyDocument)
{
    std::istringstream empty;
    parser.parse(empty, 1);
    parser.parse(empty, 1);
    EXPECT_THAT(listener->events(), IsEmpty());
}

TEST_F(ParserTest, StreamBlocksMayEndAnywhere)
{
    for (std::size_t size : {1016U, 1022U, 1023U, 1024U, 1025U, 2046U, 2047U}) {
        listener->clear();
        const String text(size - 7, 'y');
        std::istringstream stream("<a>" + text + "</a>");
        parser.parse(stream, 1);
        EXPECT_THAT(listener->events(), ElementsAre("begin a a", "data a a [" + text + "]", "end a a"));
    }
}

TEST_F(ParserTest, NulInAStreamDiscardsTheRestOfItsBlock)
{
    // The first block has 1,023 bytes, so everything from the NUL to that offset is discarded.
    String text = "<a>1" + String(1, '\0');
    text += String(1023 - text.size(), 'z') + "2</a>";
    std::istringstream stream(text);
    parser.parse(stream, 1);
    EXPECT_THAT(listener->events(), ElementsAre("begin a a", "data a a [12]", "end a a"));
}

TEST_F(ParserTest, FailureContainsAStackTrace)
{
    try {
        parser.parse("x", 1);
        FAIL();
    } catch (const system_error& error) {
        std::ostringstream trace;
        trace << error;
        EXPECT_THAT(trace.str(), testing::HasSubstr("com.kor.dal.nim.xml"));
        EXPECT_THAT(trace.str(), testing::HasSubstr("parse()"));
    }
}
