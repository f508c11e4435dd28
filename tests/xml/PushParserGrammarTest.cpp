#include "Outcome.hpp"

#include <gmock/gmock.h>

#include <cstring>
#include <string>

using test::errorOf;
using test::eventsOf;
using test::Outcome;
using test::parse;
using test::PushParser;
using test::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(PushParserTop, RootMustBeClosed)
{
    EXPECT_THAT(eventsOf("<a/>"), ElementsAre("start a a", "end a a"));
    EXPECT_THAT(eventsOf("<a />"), ElementsAre("start a a", "end a a"));

    Outcome outcome = parse("<a>");
    EXPECT_EQ(outcome.code, 700012003);
    EXPECT_THAT(outcome.events, IsEmpty());
    EXPECT_EQ(outcome.error,
              std::string("Premature end of data stream (not at top-level) -- near offset 0: <a"));

    outcome = parse("<a>text");
    EXPECT_EQ(outcome.code, 700012003);
    EXPECT_THAT(outcome.events, ElementsAre("start a a", "data a [text]"));
    EXPECT_EQ(outcome.error, "Premature end of data stream (not at top-level) -- near offset 0: <a");
}

TEST(PushParserTop, ContentAfterTheRootElement)
{
    EXPECT_THAT(eventsOf("<a></a> <!-- c --> <?pi ?>\n<!DOCTYPE b>"), ElementsAre("start a a", "end a a"));
    EXPECT_EQ(errorOf("<a></a>x"),
              "Invalid data contained outside a top-level Element -- near offset 7: x...");
    const Outcome outcome = parse("<a/><b/>");
    EXPECT_EQ(outcome.code, 700012003);
    EXPECT_THAT(outcome.events, ElementsAre("start a a", "end a a"));
    EXPECT_EQ(outcome.error, "Multiple top-level Elements encountered -- near offset 4: <b/>...");
}

TEST(PushParserTop, ProcessingInstructions)
{
    EXPECT_THAT(eventsOf("<?><a/>"), ElementsAre("start a a", "end a a"));
    EXPECT_THAT(eventsOf("<a>x<?pi <b> ?>y<?></a>"),
                ElementsAre("start a a", "data a [x]", "data a [y]", "end a a"));
    EXPECT_EQ(errorOf("  <?xml >"),
              "Invalid processing instruction: '<?' without a matching '?>' -- near offset 2: <?xml >...");
    // Inside an element, the "<" was already consumed and replaced by a NUL.
    EXPECT_EQ(errorOf("<a><?xml >"),
              "Invalid processing instruction: '<?' without a matching '?>' -- near offset 3: ");
}

TEST(PushParserTop, DocTypeEndsAtItsMatchingBracket)
{
    EXPECT_THAT(eventsOf("<!DOCTYPE a [ <!ELEMENT a (b)> <!-- c --> ]><a/>"),
                ElementsAre("start a a", "end a a"));
    // The ">" of a comment ends the DOCTYPE.
    EXPECT_EQ(errorOf("<!DOCTYPE a [ <!-- > --> ]><a/>"),
              "Invalid data contained outside a top-level Element -- near offset 25: ]><a/>...");
    EXPECT_EQ(errorOf("<!DOCTYPE a [<!ELEMENT a>"),
              "DOCTYPE tag is not properly terminated - reached End Of Document -- near offset 0: "
              "<!DOCTYPE a [<!E...");
    // Quotes have no meaning.
    EXPECT_EQ(errorOf("<!DOCTYPE a \">\"><a/>"),
              "Invalid data contained outside a top-level Element -- near offset 14: \"><a/>...");
    EXPECT_THAT(eventsOf("<a>x<!DOCTYPE b>y</a>"),
                ElementsAre("start a a", "data a [x]", "data a [y]", "end a a"));
    EXPECT_EQ(errorOf("<a><!DOCTYPE b"),
              "DOCTYPE tag is not properly terminated - reached End Of Document -- near offset 3: ");
}

TEST(PushParserTop, DocTypeKeywordMustBeFollowedByASpace)
{
    EXPECT_THAT(eventsOf("<!DOCTYPE/>"), ElementsAre("start !DOCTYPE !DOCTYPE", "end !DOCTYPE !DOCTYPE"));
    EXPECT_THAT(eventsOf("<!foo></!foo>"), ElementsAre("start !foo !foo", "end !foo !foo"));
    EXPECT_EQ(errorOf("<![CDATA[x]]>"),
              "Element name [Start Tag] contains an invalid character -- near offset 1: ![CDATA[x]]>...");
}

TEST(PushParserNames, StartTags)
{
    EXPECT_THAT(eventsOf("<_a:b-c.d1?!/>"),
                ElementsAre("start _a:b-c.d1?! _a:b-c.d1?!", "end _a:b-c.d1?! _a:b-c.d1?!"));
    EXPECT_THAT(eventsOf("<a/b=\"1\"></a>"), ElementsAre("start a a b=[1]", "end a a"));
    EXPECT_EQ(errorOf("< a>"),
              "Element name [Start Tag] starts with an invalid character -- near offset 1:  a>...");
    EXPECT_EQ(errorOf("<1/>"),
              "Element name [Start Tag] starts with an invalid character -- near offset 1: 1/>...");
    EXPECT_EQ(errorOf("<\xC3\xA4/>"),
              "Element name [Start Tag] starts with an invalid character -- near offset 1: \xC3\xA4/>...");
    EXPECT_EQ(errorOf("<a\xC3\xA4/>"),
              "Element name [Start Tag] contains an invalid character -- near offset 1: a\xC3\xA4/>...");
    EXPECT_EQ(errorOf("<abc"),
              "Element name [Start Tag] contains an invalid character -- near offset 1: abc...");
    EXPECT_EQ(errorOf("<"), "Premature end of data stream (not at top-level) -- near offset 0: <...");
    EXPECT_EQ(errorOf("<a<b/>"),
              "Element name [Start Tag] contains an invalid character -- near offset 1: a<b/>...");
}

TEST(PushParserNames, EndTags)
{
    EXPECT_THAT(eventsOf("<a></a  >"), ElementsAre("start a a", "end a a"));
    EXPECT_THAT(eventsOf("<a></a\t\r\n>"), ElementsAre("start a a", "end a a"));
    EXPECT_EQ(errorOf("<a></ a>"),
              "Element name [End Tag] starts with an invalid character -- near offset 5:  a>...");
    EXPECT_EQ(errorOf("<a></a/>"),
              "Element name [End Tag] contains an invalid character -- near offset 5: a");
    EXPECT_EQ(errorOf("<a></a b>"),
              "Element name [End Tag] contains an invalid character -- near offset 5: a");
    EXPECT_EQ(errorOf("<a></a"),
              "Element name [End Tag] contains an invalid character -- near offset 5: a...");
    EXPECT_EQ(errorOf("<a></a "), "Element name [End Tag] contains an invalid character -- near offset 5: a");
    EXPECT_EQ(errorOf("<a></"), "Premature end of data stream (not at top-level) -- near offset 0: <a");
    EXPECT_EQ(errorOf("<a></b>"), "Mismatched End Tag -- near offset 5: b");
    EXPECT_EQ(errorOf("<a></aa>"), "Mismatched End Tag -- near offset 5: aa");
    EXPECT_EQ(errorOf("<a><b></a></b>"), "Mismatched End Tag -- near offset 8: a");
}

TEST(PushParserNames, EndTagOfAnyTailOfThePathIsAccepted)
{
    EXPECT_THAT(eventsOf("<ab></b>"), ElementsAre("start ab ab", "end b ab"));
    // The rest of the path ends in an empty name, which no end tag matches.
    const Outcome outcome = parse("<x><ab></b>y<c></c></x>", 0, true);
    EXPECT_EQ(outcome.code, 700012003);
    EXPECT_THAT(outcome.events, ElementsAre("start x x", "start ab x/ab", "end b x/ab", "data  x/ [y]0",
                                            "start c x//c", "end c x//c"));
    EXPECT_EQ(outcome.error, "Mismatched End Tag -- near offset 21: x");
    // An end tag shorter than the name leaves the rest of the name, without the byte taken for a "/".
    EXPECT_THAT(parse("<x><abc></c>y</a></x>", 0, true).events,
                ElementsAre("start x x", "start abc x/abc", "end c x/abc", "data a x/a [y]0", "end a x/a"));
}

TEST(PushParserNames, TextAfterAChildBelongsToTheParent)
{
    EXPECT_THAT(eventsOf("<a>1<b>2<c>3</c>4</b>5</a>", 0, true),
                ElementsAre("start a a", "data a a [1]0", "start b a/b", "data b a/b [2]0", "start c a/b/c",
                            "data c a/b/c [3]0", "end c a/b/c", "data b a/b [4]0", "end b a/b",
                            "data a a [5]0", "end a a"));
}

TEST(PushParserAttributes, AcceptedForms)
{
    EXPECT_THAT(eventsOf("<a b=\"1\" c='2'/>"), ElementsAre("start a a b=[1] c=[2]", "end a a"));
    EXPECT_THAT(eventsOf("<a b=\"1\"c=\"2\"/>"), ElementsAre("start a a b=[1] c=[2]", "end a a"));
    EXPECT_THAT(eventsOf("<a\n b='\"'\tc=\"'\"\r\n/>"), ElementsAre("start a a b=[\"] c=[']", "end a a"));
    EXPECT_THAT(eventsOf("<a b=\"<x>\"/>"), ElementsAre("start a a b=[<x>]", "end a a"));
    EXPECT_THAT(eventsOf("<a b=\"\"/>"), ElementsAre("start a a b=[]", "end a a"));
    EXPECT_THAT(eventsOf("<a b=\"1\n2\r3\r\n4\t5\"/>"), ElementsAre("start a a b=[1 2 3  4\t5]", "end a a"));
}

TEST(PushParserAttributes, RejectedForms)
{
    EXPECT_EQ(errorOf("<a b = \"1\"/>"),
              "Attribute name doesn't terminate with an '=' -- near offset 3: b = \"1\"/>...");
    EXPECT_EQ(errorOf("<a b/>"), "Attribute name doesn't terminate with an '=' -- near offset 3: b/>...");
    EXPECT_EQ(errorOf("<a 1=\"1\"/>"),
              "Attribute name  starts with an invalid character -- near offset 3: 1=\"1\"/>...");
    EXPECT_EQ(errorOf("<a / b=\"1\">"),
              "Attribute name  starts with an invalid character -- near offset 3: / b=\"1\">...");
    EXPECT_EQ(errorOf("<a b=1/>"), "Attribute value doesn't start with a quote -- near offset 3: b");
    EXPECT_EQ(errorOf("<a b= \"1\"/>"), "Attribute value doesn't start with a quote -- near offset 3: b");
    EXPECT_EQ(errorOf("<a b="), "Attribute value doesn't start with a quote -- near offset 3: b");
    EXPECT_EQ(errorOf("<a b=\"1'/>"), "Attribute value doesn't end with a quote -- near offset 6: 1'/>...");
    EXPECT_EQ(errorOf("<a b=\"1\" b=\"2\"/>"), "Duplicate attribute name -- near offset 9: b");
    EXPECT_EQ(errorOf("<a b=\"x&y\"/>"), "Unrecognized special symbol -- near offset 6: x&y");
    EXPECT_EQ(errorOf("<a b=\"1\""), "Premature end of data stream (not at top-level) -- near offset 0: <a");
}

TEST(PushParserAttributes, DuplicateIsDetectedAmongManyAttributes)
{
    for (int count : {1, 8, 9, 10, 15, 16, 17, 18, 32, 33, 100, 5000}) {
        std::string text = "<a";
        std::string expected = "start a a";
        for (int i = 0; i < count; ++i) {
            text += " n" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
            expected += " n" + std::to_string(i) + "=[" + std::to_string(i) + "]";
        }
        EXPECT_THAT(eventsOf(text + "/>"), ElementsAre(expected, "end a a"));
        for (int twice : {0, count / 2, count - 1}) {
            EXPECT_EQ(errorOf(text + " n" + std::to_string(twice) + "=\"\"/>"),
                      "Duplicate attribute name -- near offset " + std::to_string(text.size() + 1) + ": n"
                          + std::to_string(twice));
        }
    }
}

TEST(PushParserAttributes, NamesMayRepeatInTheNextElement)
{
    std::string inner;
    for (int i = 0; i < 40; ++i) {
        inner += " n" + std::to_string(i) + "=\"\"";
    }
    EXPECT_EQ(eventsOf("<a><b" + inner + "/><c" + inner + "/><d n1=\"\"/></a>").size(), 8U);
}

TEST(PushParserSymbols, AreExpanded)
{
    EXPECT_THAT(eventsOf("<a b=\"&#65;&#321;\"/>"), ElementsAre("start a a b=[AA]", "end a a"));
    EXPECT_THAT(eventsOf("<a>x&lt;y</a>"), ElementsAre("start a a", "data a [x<y]", "end a a"));
    EXPECT_THAT(eventsOf("<a>&lt;&gt;&quot;&apos;&amp;</a>"),
                ElementsAre("start a a", "data a [<>\"'&]", "end a a"));
    EXPECT_THAT(eventsOf("<a>&amp;lt;</a>"), ElementsAre("start a a", "data a [&lt;]", "end a a"));
    EXPECT_THAT(eventsOf("<a>1&#0;2</a>"), ElementsAre("start a a", "data a [1]", "end a a"));
    EXPECT_THAT(eventsOf("<a>1&#;2</a>"), ElementsAre("start a a", "data a [1]", "end a a"));
    EXPECT_THAT(eventsOf("<a>&#256065;</a>"), ElementsAre("start a a", "data a [A]", "end a a"));
    EXPECT_THAT(eventsOf("<a>&#99999999999999999999999999;</a>"),
                ElementsAre("start a a", "data a [\xFF]", "end a a"));
}

TEST(PushParserSymbols, UnknownSymbolIsASyntaxError)
{
    for (const char* symbol :
         {"&", "&;", "& ", "&LT;", "&lt", "&lt ;", "&copy;", "&#x41;", "&#65", "&#65 ;", "&#-1;", "&&amp;"}) {
        const std::string text = symbol;
        EXPECT_EQ(errorOf("<a>" + text + "</a>"), "Unrecognized special symbol -- near offset 3: " + text)
            << symbol;
    }
    // The symbols before it were already expanded in place.
    EXPECT_EQ(errorOf("<a>&lt;&zz;</a>"), "Unrecognized special symbol -- near offset 3: <lt;&zz;");
}

TEST(PushParserContent, CommentSplitsTextIntoTwoEvents)
{
    EXPECT_THAT(eventsOf("<a>x<!-- c -->y</a>"),
                ElementsAre("start a a", "data a [x]", "data a [y]", "end a a"));
    EXPECT_THAT(eventsOf("<a><!-- -- > --></a>"), ElementsAre("start a a", "end a a"));
    EXPECT_THAT(eventsOf("<a><!----></a>"), ElementsAre("start a a", "end a a"));
}

TEST(PushParserContent, UnterminatedCommentIsASyntaxError)
{
    EXPECT_EQ(errorOf(" <!-- x --"), "Comment not terminated -- near offset 1: <!-- x --...");
    EXPECT_EQ(errorOf("<!--->"), "Comment not terminated -- near offset 0: <!--->...");
    EXPECT_EQ(errorOf("<a>x<!-- y</a>"), "Comment not terminated -- near offset 4: ");
    EXPECT_EQ(errorOf("<!--"), "Premature end of data stream (not at top-level) -- near offset 0: <!--...");
    EXPECT_EQ(errorOf("<a><!--"), "Premature end of data stream (not at top-level) -- near offset 0: <a");
}

TEST(PushParserContent, CDataOpeningIsNotCompared)
{
    EXPECT_THAT(eventsOf("<a><![CDATA[<b>&]] ]>]]></a>"),
                ElementsAre("start a a", "cdata a [<b>&]] ]>]", "end a a"))
        << "the first \"]]>\" ends it";
    EXPECT_THAT(eventsOf("<a><![CDATA[<b>]]></a>", 0, true),
                ElementsAre("start a a", "cdata a a [<b>]", "end a a"));
    EXPECT_THAT(eventsOf("<a><![cdata[x]]></a>"), ElementsAre("start a a", "cdata a [x]", "end a a"));
    EXPECT_THAT(eventsOf("<a><!1234567x]]></a>"), ElementsAre("start a a", "cdata a [x]", "end a a"));
    EXPECT_THAT(eventsOf("<a><![CDATA[]]></a>"), ElementsAre("start a a", "cdata a []", "end a a"));
    EXPECT_THAT(eventsOf("<a><![CDATA[ ]]></a>", PDS_PARSE_F_SKIP_WS),
                ElementsAre("start a a", "cdata a [ ]", "end a a"));
    EXPECT_THAT(eventsOf("<a><!]]></a>]]></a>"), ElementsAre("start a a", "cdata a []", "end a a"));
}

TEST(PushParserContent, UnterminatedCDataIsASyntaxError)
{
    EXPECT_EQ(errorOf("<a><![CDATA[x]]"), "CDATA segment not terminated -- near offset 12: x]]...");
    EXPECT_EQ(errorOf("<a><![CDATA["),
              "Premature end of data stream (not at top-level) -- near offset 0: <a");
    for (const char* tail : {"", "x", "[CDATA", "-", "DOCTYPE"}) {
        EXPECT_EQ(errorOf("<a><!" + std::string(tail)),
                  std::strlen(tail) < 7
                      ? "CDATA segment not terminated -- near offset 12: ..."
                      : "Premature end of data stream (not at top-level) -- near offset 0: <a");
    }
}

TEST(PushParserContent, WhiteSpaceTextIsReportedUnlessSkipped)
{
    EXPECT_THAT(eventsOf("<a> <b/>\n</a>"),
                ElementsAre("start a a", "data a [ ]", "start b a/b", "end b a/b", "data a [\n]", "end a a"));
    EXPECT_THAT(eventsOf("<a> <b/>\n</a>", PDS_PARSE_F_SKIP_WS),
                ElementsAre("start a a", "start b a/b", "end b a/b", "end a a"));
    EXPECT_THAT(eventsOf("<a>&#32;</a>", PDS_PARSE_F_SKIP_WS), ElementsAre("start a a", "end a a"));
    EXPECT_THAT(eventsOf("<a>&#32;</a>"), ElementsAre("start a a", "data a [ ]", "end a a"));
    EXPECT_THAT(eventsOf("<a> x </a>", PDS_PARSE_F_SKIP_WS),
                ElementsAre("start a a", "data a [ x ]", "end a a"));
    EXPECT_THAT(eventsOf("<a>&#0;x</a>", PDS_PARSE_F_SKIP_WS), ElementsAre("start a a", "end a a"))
        << "its readers see no byte of it";
}

TEST(PushParserContent, BytesAbove127AreAcceptedInTextAndValues)
{
    EXPECT_THAT(eventsOf("<a b=\"\xC3\xA4\">\xFF\x80</a>"),
                ElementsAre("start a a b=[\xC3\xA4]", "data a [\xFF\x80]", "end a a"));
}

TEST(PushParserContent, TextIsPassedWithTheAttributesOfTheLastStartTag)
{
    EXPECT_THAT(eventsOf("<a x=\"1\" y=\"2\">1<b z=\"3\"/>2<c/>3</a>", 0, true),
                ElementsAre("start a a x=[1] y=[2]", "data a a [1]4", "start b a/b z=[3]", "end b a/b",
                            "data a a [2]2", "start c a/c", "end c a/c", "data a a [3]0", "end a a"));
}

TEST(PushParserNullAttribute, IsReportedAsDataBeforeTheStart)
{
    EXPECT_THAT(eventsOf("<a x=\"1\" NULL=\"y\" z=\"2\"/>", PDS_PARSE_F_NULL_ATTR, true),
                ElementsAre("data a a []0", "start a a x=[1] NULL=[y] z=[2]", "end a a"));
    EXPECT_THAT(eventsOf("<a null=\"y\" NULLS=\"1\"/>", PDS_PARSE_F_NULL_ATTR, true),
                ElementsAre("start a a null=[y] NULLS=[1]", "end a a"));
    EXPECT_THAT(eventsOf("<a NULL=\"y\"/>", 0, true), ElementsAre("start a a NULL=[y]", "end a a"));
    EXPECT_THAT(eventsOf("<a NULL=\"y\"/>", PDS_PARSE_F_NULL_ATTR),
                ElementsAre("start a a NULL=[y]", "end a a"));
}

TEST(PushParserNullAttribute, ArrayIsNullTerminated)
{
    // The event has 0 entries, but the array contains the attributes so far and a null pointer.
    const auto walk = [](PDS_PARSE_H, pds_parse_cb_type_e type, void* context, void*, char*, char*, char*,
                         std::size_t entries, char** attributes) {
        auto& seen = *static_cast<std::vector<std::string>*>(context);
        if (type == PDS_PARSE_CB_DATA) {
            seen.push_back(std::to_string(entries) + ":");
            while (*attributes != nullptr) {
                seen.push_back(*attributes++);
            }
        }
        return 0;
    };
    std::vector<std::string> seen;
    PDS_PARSE_H handle = nullptr;
    ASSERT_EQ(nim_pdsParseInit(0, &seen, nullptr, nullptr, nullptr, walk, nullptr, &handle), 0);
    char text[] = "<a NULL=''><b c='1' NULL=''/></a>";
    EXPECT_EQ(nim_pdsParseBuffer(text, PDS_PARSE_F_LAST | PDS_PARSE_F_NULL_ATTR, handle), 0);
    EXPECT_THAT(seen, ElementsAre("0:", "0:", "c", "1"));

    // Also if the previous array was exactly full.
    seen.clear();
    std::string many = "<a";
    for (int i = 0; i < 100; ++i) {
        many += " k" + std::to_string(i) + "='" + std::to_string(i) + "'";
        ASSERT_EQ(nim_pdsParseReset(0, &seen, handle), 0);
        seen.clear();
        ASSERT_EQ(nim_pdsParseBuffer(const_cast<char*>((many + " NULL=''/>").c_str()),
                                     PDS_PARSE_F_LAST | PDS_PARSE_F_NULL_ATTR, handle),
                  0);
        ASSERT_EQ(seen.size(), 2U * static_cast<unsigned>(i) + 3U);
        ASSERT_EQ(seen.back(), std::to_string(i));
    }
    EXPECT_EQ(nim_pdsParseDestroy(&handle), 0);
}

TEST(PushParserNullAttribute, CallbackResultCanStopTheParse)
{
    Recorder recorder;
    recorder.stopAt = 1;
    PushParser parser(recorder, true);
    EXPECT_EQ(parser.parse("<a NULL=\"y\"/>", PDS_PARSE_F_NULL_ATTR), 700012002);
    EXPECT_THAT(recorder.events, ElementsAre("data a a []0"));
}
