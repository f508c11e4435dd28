#include "Loading.hpp"

#include <gmock/gmock.h>

#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;
using iotest::failureOf;
using iotest::loaded;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(PropertiesLoad, OtherPercentLinesAreIgnored)
{
    for (const char* const text :
         {"%foo bar", "%pragma", "% pragma include \"x\"", "%", "%%", "%=x", "%Pragma include x",
          "%pragmas include x", "%pragma=include", "%pragm include x", "  %foo\\", "%pragma\\ x"}) {
        EXPECT_EQ("loaded", failureOf(text)) << text;
        EXPECT_THAT(loaded(text), IsEmpty()) << text;
        EXPECT_THAT(loaded(String(text) + "\nk=v"), ElementsAre(Pair("k", "v"))) << text;
    }
}

TEST(PropertiesLoad, UnknownPragmaCommandThrows)
{
    const std::pair<const char*, const char*> cases[] = {
        {"%pragma foo", "foo"},
        {"%pragma include", "include"},
        {"%pragma severity", "severity"},
        {"%pragma foo bar", "foo"},
        {"%pragma ", ""},
        {"%pragma \t ", ""},
        {"%pragma\r", ""},
        {"%pragma foo ", "foo"},
        {"  %pragma   Include \"x\"  ", "Include"},
        {"%pragma includes x", "includes"},
    };
    for (const auto& [text, command] : cases) {
        EXPECT_EQ(String("ERROR: x.conf:1: unknown %pragma command: \"") + command + "\"", failureOf(text))
            << text;
    }
}

TEST(PropertiesLoad, SecondPragmaArgumentThrows)
{
    for (const char* const text :
         {"%pragma foo bar baz", "%pragma include \"a\" b", "%pragma include \"a b\"",
          "%pragma severity error note", "%pragma severity bad bad"}) {
        EXPECT_EQ("ERROR: x.conf:1: invalid number of args for %pragma command", failureOf(text)) << text;
    }
}

TEST(PropertiesLoad, UnknownSeverityThrows)
{
    const std::pair<const char*, const char*> cases[] = {{"%pragma severity Error", "Error"},
                                                         {"%pragma severity \"error\"", "\"error\""},
                                                         {"%pragma severity 1 ", "1"},
                                                         {"%pragma severity ", ""},
                                                         {"%pragma severity err\\u006fr", "err\\u006fr"}};
    for (const auto& [text, argument] : cases) {
        EXPECT_EQ(String("ERROR: x.conf:1: invalid arg for %pragma severity: \"") + argument + "\"",
                  failureOf(text))
            << text;
    }
}

TEST(PropertiesLoad, UnquotedIncludeThrows)
{
    const std::pair<const char*, const char*> cases[] = {
        {"%pragma include a.conf", "a.conf"}, {"%pragma include \"", "\""},   {"%pragma include \"a", "\"a"},
        {"%pragma include a\"", "a\""},       {"%pragma include 'a'", "'a'"}, {"%pragma include ", ""},
        {"%pragma include a\" ", "a\""},
    };
    for (const auto& [text, argument] : cases) {
        EXPECT_EQ(String("ERROR: x.conf:1: invalid arg for %pragma include: \"") + argument + "\"",
                  failureOf(text))
            << text;
    }
}

TEST(PropertiesLoad, MalformedEscapesThrow)
{
    const std::pair<const char*, const char*> cases[] = {
        {"k=\\u", "End-of-line encountered in unicode escape sequence."},
        {"k=\\u12", "End-of-line encountered in unicode escape sequence."},
        {"k=\\u123", "End-of-line encountered in unicode escape sequence."},
        {"k=\\u00\\\n41", "End-of-line encountered in unicode escape sequence."},
        {"k=\\uzzz", "End-of-line encountered in unicode escape sequence."},
        {"k=\\u004g", "Invalid unicode escape sequence '\\u004g'."},
        {"k=\\u 0041", "Invalid unicode escape sequence '\\u 004'."},
        {"k=\\ug100", "Invalid unicode escape sequence '\\ug100'."},
        {"k=\\u00\\\\x", "Invalid unicode escape sequence '\\u00\\\\'."},
        {"k=\\u\xff\xff\xff\xff", "Invalid unicode escape sequence '\\u\xff\xff\xff\xff'."},
        {"k=\\u0100", "Unicode escape sequence '\\u0100' exceeds capacity of single byte character."},
        {"k=\\uFFff", "Unicode escape sequence '\\uFFff' exceeds capacity of single byte character."},
        {"k=\\x", "End-of-line encountered in hex escape sequence."},
        {"\\x", "End-of-line encountered in hex escape sequence."},
        {"k=\\xg", "Invalid hex escape sequence '\\xg'."},
        {"k=\\x 4", "Invalid hex escape sequence '\\x '."},
        {"k=\\x\\\n4", "Invalid hex escape sequence '\\x\\'."},
        {"k=\\x\xe9", "Invalid hex escape sequence '\\x\xe9'."},
    };
    for (const auto& [text, message] : cases) {
        EXPECT_EQ(String("ERROR: x.conf:1: ") + message, failureOf(text)) << text;
    }
}

TEST(PropertiesLoad, EscapesInCommentsAreIgnored)
{
    EXPECT_EQ("loaded", failureOf("# \\u\n! \\x\n%foo \\x"));
}

TEST(PropertiesLoad, ErrorContainsThePhysicalLineNumber)
{
    EXPECT_EQ("ERROR: x.conf:5: Invalid hex escape sequence '\\x.'.",
              failureOf("a=1\n# comment\n\nb=2\\\n\\x.\nc=3\n"));
    EXPECT_EQ("ERROR: x.conf:1234: unknown %pragma command: \"x\"",
              failureOf(String(1233, '\n') + "%pragma x"));
}

TEST(PropertiesLoad, ErrorOfAnUnnamedStreamHasAnEmptyName)
{
    std::istringstream stream("\n%pragma x");
    try {
        Properties().load(stream);
        ADD_FAILURE();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ("ERROR: :2: unknown %pragma command: \"x\"", e.what());
    }
}

TEST(PropertiesLoad, EveryPrefixLoadsOrFailsWithAKnownMessage)
{
    const String text = "# head\n"
                        "a\\u0041\\x4\\x41=\\101\\7x\\ \n"
                        "  b : c\\\n"
                        "   d\\u00e9\\\\\\n  \n"
                        "%pragma severity warning\n"
                        "%foo\n"
                        "a\\u0041\\x4\\x41=1\n"
                        "%pragma severity error\n"
                        "=e\\xg";
    const String known[] = {": End-of-line encountered in unicode escape sequence.",
                            ": End-of-line encountered in hex escape sequence.",
                            ": Invalid hex escape sequence '\\xg'.", ": invalid arg for %pragma severity: \"",
                            ": unknown %pragma command: \""};
    std::map<String, int> seen;
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const String message = failureOf(text.substr(0, length));
        if (message == "loaded") {
            ++seen["loaded"];
            continue;
        }
        bool is_known = false;
        for (const String& end : known) {
            if (message.find(end, String("ERROR: x.conf:").size()) != String::npos) {
                ++seen[end];
                is_known = true;
            }
        }
        EXPECT_TRUE(is_known) << length << ": " << message;
    }
    EXPECT_EQ(6u, seen.size());
}

}
