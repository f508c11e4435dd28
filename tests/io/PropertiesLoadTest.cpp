#include "Loading.hpp"

#include <gmock/gmock.h>

#include <locale>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <utility>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;
using iotest::loaded;
using iotest::Table;
using iotest::tableOf;
using iotest::warningsOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(PropertiesLoad, EmptyStreamLoadsNothing)
{
    EXPECT_THAT(loaded(""), IsEmpty());
    EXPECT_EQ("", warningsOf("", Properties::SEV_NOTE));
}

TEST(PropertiesLoad, SeparatorsAroundKeyAndValueAreEquivalent)
{
    EXPECT_THAT(loaded("key"), ElementsAre(Pair("key", "")));
    EXPECT_THAT(loaded("key="), ElementsAre(Pair("key", "")));
    for (const char* const text :
         {"key value", "key=value", "key:value", "key = value", "key : value", "key\tvalue",
          " \t\v\f\rkey=value", "key \v\f=\t value", "key=value\n", "key=value\r\n"}) {
        EXPECT_THAT(loaded(text), ElementsAre(Pair("key", "value"))) << text;
    }
}

TEST(PropertiesLoad, OnlyOneSeparatorIsConsumed)
{
    EXPECT_THAT(loaded("a=b=c"), ElementsAre(Pair("a", "b=c")));
    EXPECT_THAT(loaded("a==b"), ElementsAre(Pair("a", "=b")));
    EXPECT_THAT(loaded("a=:b"), ElementsAre(Pair("a", ":b")));
    EXPECT_THAT(loaded("a : = b"), ElementsAre(Pair("a", "= b")));
    EXPECT_THAT(loaded("a b=c"), ElementsAre(Pair("a", "b=c")));
    EXPECT_THAT(loaded("a b c"), ElementsAre(Pair("a", "b c")));
}

TEST(PropertiesLoad, DecodingComesBeforeSplitting)
{
    EXPECT_THAT(loaded("a\\=b=c"), ElementsAre(Pair("a", "b=c")));
    EXPECT_THAT(loaded("a\\ b=c"), ElementsAre(Pair("a", "b=c")));
    EXPECT_THAT(loaded("a\\u003ab"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("a\\tb"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("k=\\ x"), ElementsAre(Pair("k", "x")));
    EXPECT_THAT(loaded("k=\\n\\nx"), ElementsAre(Pair("k", "x")));
}

TEST(PropertiesLoad, EmptyKeyIsLoaded)
{
    EXPECT_THAT(loaded("=x"), ElementsAre(Pair("", "x")));
    EXPECT_THAT(loaded(":x"), ElementsAre(Pair("", "x")));
    EXPECT_THAT(loaded("\\ "), ElementsAre(Pair("", "")));
    EXPECT_THAT(loaded("\\ x"), ElementsAre(Pair("", "x")));
    EXPECT_THAT(loaded("="), ElementsAre(Pair("", "")));
}

TEST(PropertiesLoad, TrailingWhiteSpaceIsTrimmedUnlessEscapedOrKept)
{
    EXPECT_THAT(loaded("k=x   "), ElementsAre(Pair("k", "x")));
    EXPECT_THAT(loaded("k=x   ", true), ElementsAre(Pair("k", "x   ")));
    EXPECT_THAT(loaded("k=x\\ "), ElementsAre(Pair("k", "x ")));
    EXPECT_THAT(loaded("k=x\\   \t"), ElementsAre(Pair("k", "x ")));
    EXPECT_THAT(loaded("k=x \\t "), ElementsAre(Pair("k", "x \t")));
    EXPECT_THAT(loaded("k=x \\u0020 ", true), ElementsAre(Pair("k", "x   ")));
    EXPECT_THAT(loaded("k=   ", true), ElementsAre(Pair("k", "")));
    EXPECT_THAT(loaded("k   ", true), ElementsAre(Pair("k", "")));
    EXPECT_THAT(loaded("k=x y  z "), ElementsAre(Pair("k", "x y  z")));
}

TEST(PropertiesLoad, CarriageReturnIsWhiteSpace)
{
    EXPECT_THAT(loaded("k=x\r\nl=y\r\n"), ElementsAre(Pair("k", "x"), Pair("l", "y")));
    EXPECT_THAT(loaded("k=x\r\n\r\nl=y\r\n", true), ElementsAre(Pair("k", "x\r"), Pair("l", "y\r")));
    // The backslash escapes the CR and does not continue the line.
    EXPECT_THAT(loaded("k=x\\\r\nl=y"), ElementsAre(Pair("k", "x\r"), Pair("l", "y")));
}

TEST(PropertiesLoad, CommentsBeginWithHashOrExclamationMark)
{
    EXPECT_THAT(loaded("#a=1\n!b=2\n  # c=3\n\t!d=4\n"), IsEmpty());
    EXPECT_THAT(loaded("a=#1\nb#=!2\n"), ElementsAre(Pair("a", "#1"), Pair("b#", "!2")));
    EXPECT_THAT(loaded("# a comment is not continued\\\nb=2"), ElementsAre(Pair("b", "2")));
    EXPECT_THAT(loaded("\\#a=1\n\\!b=2\n\\%c=3"),
                ElementsAre(Pair("!b", "2"), Pair("#a", "1"), Pair("%c", "3")));
}

TEST(PropertiesLoad, EmptyLinesAreSkipped)
{
    EXPECT_THAT(loaded("\n \n\t\r\na=1\n\n\nb=2\n\n"), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(PropertiesLoad, BackslashAtTheEndContinuesTheLine)
{
    EXPECT_THAT(loaded("a=b\\\n   c"), ElementsAre(Pair("a", "bc")));
    EXPECT_THAT(loaded("a=b \\\nc"), ElementsAre(Pair("a", "b c")));
    EXPECT_THAT(loaded("a=b\\\n# c"), ElementsAre(Pair("a", "b# c")));
    EXPECT_THAT(loaded("a=b\\\n! c"), ElementsAre(Pair("a", "b! c")));
    EXPECT_THAT(loaded("a=b\\\nc\\\n  d\\\n\te"), ElementsAre(Pair("a", "bcde")));
    EXPECT_THAT(loaded("a\\\nb\\\n=\\\nc"), ElementsAre(Pair("ab", "c")));
    EXPECT_THAT(loaded("a=b\\\n# c\\\n# d"), ElementsAre(Pair("a", "b# c# d")));
}

TEST(PropertiesLoad, EmptyLinePercentLineOrEndOfFileEndsAContinuation)
{
    EXPECT_THAT(loaded("a=b\\\n\nc=d"), ElementsAre(Pair("a", "b"), Pair("c", "d")));
    EXPECT_THAT(loaded("a=b\\\n \t\r\nc=d"), ElementsAre(Pair("a", "b"), Pair("c", "d")));
    EXPECT_THAT(loaded("a=b\\\n\n#c=d"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("a=b\\"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("a=b\\\n"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("a=b\\\n%x"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("a=b\\\n%pragma nonsense\nc=d"), ElementsAre(Pair("a", "b"), Pair("c", "d")));
    EXPECT_THAT(loaded("a=b\\\n  %x\\\nc=d"), ElementsAre(Pair("a", "b"), Pair("c", "d")));
}

TEST(PropertiesLoad, ContinuationOfAnEmptyLine)
{
    EXPECT_THAT(loaded("\\"), IsEmpty());
    EXPECT_THAT(loaded("\\\n\\\n\n"), IsEmpty());
    EXPECT_THAT(loaded("\\\na=b"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("\\\n#a=b"), ElementsAre(Pair("#a", "b")));
    EXPECT_THAT(loaded("\\\n%a=b\nc=d"), ElementsAre(Pair("c", "d")));
}

TEST(PropertiesLoad, ContinuationAndWhiteSpace)
{
    EXPECT_THAT(loaded("a=b  \\\n"), ElementsAre(Pair("a", "b")));
    EXPECT_THAT(loaded("a=b  \\\n", true), ElementsAre(Pair("a", "b  ")));
    EXPECT_THAT(loaded("a=b \\\n \\\n c"), ElementsAre(Pair("a", "b c")));
    EXPECT_THAT(loaded("a=b \\\n\\ \\\n"), ElementsAre(Pair("a", "b  ")));
    EXPECT_THAT(loaded("a=b\\\n  c  "), ElementsAre(Pair("a", "bc")));
    EXPECT_THAT(loaded("a=b\\\n  c  ", true), ElementsAre(Pair("a", "bc  ")));
}

TEST(PropertiesLoad, LongLineLeavesNothingForTheNext)
{
    EXPECT_THAT(loaded("a=a long value \\\n that goes on\nb=x\nc\n"),
                ElementsAre(Pair("a", "a long value that goes on"), Pair("b", "x"), Pair("c", "")));
}

TEST(PropertiesLoad, LetterEscapesAreControlBytes)
{
    EXPECT_THAT(loaded("k=-\\a\\b\\f\\n\\r\\t\\v-"), ElementsAre(Pair("k", "-\a\b\f\n\r\t\v-")));
    EXPECT_THAT(loaded("k=\\c\\d\\e\\g\\w\\y\\z"), ElementsAre(Pair("k", "cdegwyz")));
    EXPECT_THAT(loaded("k=\\A\\N\\U0041\\X41"), ElementsAre(Pair("k", "ANU0041X41")));
    EXPECT_THAT(loaded("k=\\\\\\=\\:\\#\\\"\\'\\\xe9"), ElementsAre(Pair("k", "\\=:#\"'\xe9")));
    EXPECT_THAT(loaded("k=\\\\\nl=m"), ElementsAre(Pair("k", "\\"), Pair("l", "m")));
    EXPECT_THAT(loaded("k=\\\\\\\nl=m"), ElementsAre(Pair("k", "\\l=m")));
}

TEST(PropertiesLoad, UnicodeEscapesAreOneByte)
{
    EXPECT_THAT(loaded("\\u0041=1"), ElementsAre(Pair("A", "1")));
    EXPECT_THAT(loaded("k=\\u00e9"), ElementsAre(Pair("k", "\xe9")));
    EXPECT_THAT(loaded("k=\\u00E9\\u00ff"), ElementsAre(Pair("k", "\xe9\xff")));
    EXPECT_THAT(loaded("k=\\u00411"), ElementsAre(Pair("k", "A1")));
    EXPECT_THAT(loaded("k=\\u0000"), ElementsAre(Pair("k", String("\0", 1))));
}

TEST(PropertiesLoad, HexEscapesHaveUpToTwoDigits)
{
    EXPECT_THAT(loaded("k=\\x4"), ElementsAre(Pair("k", "\x04")));
    EXPECT_THAT(loaded("k=\\x41"), ElementsAre(Pair("k", "A")));
    EXPECT_THAT(loaded("k=\\x414"), ElementsAre(Pair("k", "A4")));
    EXPECT_THAT(loaded("k=\\x4g"), ElementsAre(Pair("k", "\x04g")));
    EXPECT_THAT(loaded("k=\\xfF\\x0\\xAa"), ElementsAre(Pair("k", String("\xff\0\xaa", 3))));
    EXPECT_THAT(loaded("k=\\x4\\\n1"), ElementsAre(Pair("k", "\x04"
                                                             "1")));
}

TEST(PropertiesLoad, OctalEscapesHaveUpToThreeDigits)
{
    EXPECT_THAT(loaded("k=\\101"), ElementsAre(Pair("k", "A")));
    EXPECT_THAT(loaded("k=x\\400"), ElementsAre(Pair("k", "x 0")));
    EXPECT_THAT(loaded("k=\\8\\9"), ElementsAre(Pair("k", "89")));
    EXPECT_THAT(loaded("k=\\377\\77\\7"), ElementsAre(Pair("k", "\xff?\a")));
    EXPECT_THAT(loaded("k=\\1018\\18\\0101"), ElementsAre(Pair("k", "A8\x01"
                                                                    "8\b1")));
    EXPECT_THAT(loaded("k=\\0"), ElementsAre(Pair("k", String("\0", 1))));
    EXPECT_THAT(loaded("k=\\1\\\n01"), ElementsAre(Pair("k", "\x01"
                                                             "01")));
}

TEST(PropertiesLoad, OtherBytesAreUnchanged)
{
    EXPECT_THAT(loaded(String("a\0b=c\0d\0", 8)), ElementsAre(Pair(String("a\0b", 3), String("c\0d\0", 4))));
    EXPECT_THAT(loaded("\xff\x80=\xa0\x85"), ElementsAre(Pair("\xff\x80", "\xa0\x85")));
}

TEST(PropertiesLoad, LastAssignmentIsUsed)
{
    EXPECT_THAT(loaded("a=1\nb=2\na=3\n"), ElementsAre(Pair("a", "3"), Pair("b", "2")));
}

TEST(PropertiesLoad, AddsToExistingProperties)
{
    Properties properties;
    properties.setProperty("a", "1");
    properties.setProperty("b", "2");
    std::istringstream stream("b=3\nc=4");
    EXPECT_EQ(&stream, &properties.load(stream));
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("a", "1"), Pair("b", "3"), Pair("c", "4")));
}

TEST(PropertiesLoad, ConstructorsLoad)
{
    std::istringstream plain("k=x ");
    EXPECT_THAT(tableOf(Properties(plain)), ElementsAre(Pair("k", "x")));
    std::istringstream kept("k=x ");
    EXPECT_THAT(tableOf(Properties(kept, true)), ElementsAre(Pair("k", "x ")));

    std::istringstream named("k=x \nk=y ");
    std::ostringstream warnings;
    std::ostringstream notes;
    const Properties properties(named, "dir/name", warnings, notes, Properties::SEV_WARNING, true);
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("k", "y ")));
    EXPECT_EQ("WARNING: name:2: Overriding property \"k\"\n", warnings.str());

    std::istringstream bad("k=\\x");
    EXPECT_THROW(Properties{bad}, std::invalid_argument);
}

TEST(PropertiesLoad, WarnsOfOverriddenProperties)
{
    const String text = "a=1\n\n# comment\nb=2\na=3\na=\\\n4\n";
    const String expected = "WARNING: x.conf:5: Overriding property \"a\"\n"
                            "WARNING: x.conf:7: Overriding property \"a\"\n";
    EXPECT_EQ("", warningsOf(text, Properties::SEV_ERROR));
    EXPECT_EQ(expected, warningsOf(text, Properties::SEV_WARNING));
    EXPECT_EQ(expected, warningsOf(text, Properties::SEV_NOTE));
}

TEST(PropertiesLoad, WarnsOfPropertiesFromBeforeTheLoad)
{
    Properties properties;
    properties.setProperty("k", "v");
    EXPECT_EQ("WARNING: x.conf:1: Overriding property \"k\"\n",
              warningsOf("k=w", Properties::SEV_WARNING, properties));
    EXPECT_EQ("w", properties.getProperty("k"));
}

TEST(PropertiesLoad, WarningContainsTheDecodedKey)
{
    EXPECT_EQ("WARNING: x.conf:2: Overriding property \"\"\n", warningsOf("=1\n=2", Properties::SEV_WARNING));
    EXPECT_EQ("WARNING: x.conf:2: Overriding property \"A" + String(1, '\0') + "\xe9\"\n",
              warningsOf("\\u0041\\0\\xe9\n\\101\\u0000\\xe9", Properties::SEV_WARNING));
}

TEST(PropertiesLoad, WarningsIgnoreTheFormatFlagsOfTheStream)
{
    struct Grouping : std::numpunct<char>
    {
        char do_thousands_sep() const override
        {
            return ',';
        }
        std::string do_grouping() const override
        {
            return "\1";
        }
    };
    std::ostringstream warnings;
    warnings.imbue(std::locale(std::locale::classic(), new Grouping));
    warnings << "before\n" << std::hex;
    warnings.width(80);
    std::ostringstream notes;
    std::istringstream stream(String(12, '\n') + "a\na\n");
    Properties().load(stream, "f", warnings, notes, Properties::SEV_WARNING);
    EXPECT_EQ("before\nWARNING: f:14: Overriding property \"a\"\n", warnings.str());
}

TEST(PropertiesLoad, SeverityPragmaAppliesToTheRestOfTheFile)
{
    const String repeated = "a=1\na=2\n";
    EXPECT_EQ("WARNING: x.conf:4: Overriding property \"a\"\n",
              warningsOf("a=0\n%pragma severity warning\n#\na=1\n", Properties::SEV_ERROR));
    EXPECT_EQ("WARNING: x.conf:3: Overriding property \"a\"\n",
              warningsOf("%pragma severity note\n" + repeated, Properties::SEV_ERROR));
    EXPECT_EQ("", warningsOf("  %pragma\tseverity  error \t\r\n" + repeated, Properties::SEV_NOTE));
    EXPECT_EQ("WARNING: x.conf:2: Overriding property \"a\"\n",
              warningsOf(repeated + "%pragma severity error\n" + repeated, Properties::SEV_WARNING));
}

TEST(PropertiesLoad, FailureKeepsPropertiesBeforeIt)
{
    Properties properties;
    std::istringstream stream("a=1\nb=\\x\nc=3\n");
    EXPECT_THROW(properties.load(stream), std::invalid_argument);
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("a", "1")));
    // The stream is positioned after the line that failed.
    EXPECT_TRUE(stream.good());
    properties.load(stream);
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("a", "1"), Pair("c", "3")));
}

TEST(PropertiesLoad, StreamStateShowsHowTheLoadEnded)
{
    std::istringstream ended("a=1");
    Properties properties;
    EXPECT_TRUE(properties.load(ended).eof());
    EXPECT_FALSE(ended.fail());

    std::istringstream failed("b=2");
    failed.setstate(std::ios::failbit);
    EXPECT_TRUE(properties.load(failed).fail());
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("a", "1")));
}

TEST(PropertiesLoad, ReadErrorEndsTheFile)
{
    /** Contains a few bytes, then fails. */
    class Broken : public std::streambuf
    {
    public:
        explicit Broken(String text) : bytes(std::move(text))
        {
            setg(bytes.data(), bytes.data(), bytes.data() + bytes.size());
        }

    protected:
        int_type underflow() override
        {
            throw std::runtime_error("broken");
        }

    private:
        String bytes;
    };
    Broken buffer("a=1\nb=2\\\n  half of a li");
    std::istream stream(&buffer);
    Properties properties;
    EXPECT_TRUE(properties.load(stream).bad());
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("a", "1"), Pair("b", "2")));
}

TEST(PropertiesLoad, ReadErrorThrowsIfTheStreamDoes)
{
    std::istringstream stream("a=1\n");
    stream.exceptions(std::ios::failbit);
    Properties properties;
    EXPECT_THROW(properties.load(stream), std::ios_base::failure);
    EXPECT_THAT(tableOf(properties), ElementsAre(Pair("a", "1")));
}

TEST(PropertiesLoad, LongLinesAreLoaded)
{
    const String value(16 << 20, 'x');
    EXPECT_EQ(value, loaded("k=" + value + " ")["k"]);

    String lines = "k=";
    for (int i = 0; i < 100000; ++i) {
        lines += "\\\n x";
    }
    EXPECT_EQ(String(100000, 'x'), loaded(lines)["k"]);
}

TEST(PropertiesLoad, ManyPropertiesAreLoaded)
{
    String text;
    for (int i = 0; i < 50000; ++i) {
        text += "key" + std::to_string(i * 7919 % 50000) + "=" + std::to_string(i) + "\n";
    }
    const Table table = loaded(text);
    EXPECT_EQ(50000u, table.size());
    EXPECT_EQ("1", table.at("key7919"));
    EXPECT_EQ("0", table.at("key0"));
}

/** Assignments to keys in random order, and the resulting table. */
struct Disorder
{
    Disorder(std::size_t lines, unsigned int keys)
    {
        std::mt19937 random(100);
        for (std::size_t i = 0; i < lines; ++i) {
            const String key = "a.key.of.some.length." + std::to_string(random() % keys);
            const String value = std::to_string(i);
            text += key + "=" + value + "\n";
            expected[key] = value;
        }
    }

    String text;
    Table expected;
};

TEST(PropertiesLoad, UnsortedTextIsLoaded)
{
    for (const auto& [lines, keys] : {std::pair(30000, 10000u), std::pair(150000, 100000u)}) {
        const Disorder disorder(static_cast<std::size_t>(lines), keys);
        EXPECT_TRUE(disorder.expected == loaded(disorder.text)) << lines;
    }
}

TEST(PropertiesLoad, UnsortedTextIsAddedToATable)
{
    const Disorder first(20000, 10000);
    const Disorder second(10000, 20000);
    Table expected = second.expected;
    expected.insert(first.expected.begin(), first.expected.end());

    Properties properties;
    std::istringstream first_stream(first.text);
    properties.load(first_stream);
    std::istringstream second_stream(second.text);
    properties.load(second_stream);
    EXPECT_TRUE(expected == tableOf(properties));
}

TEST(PropertiesLoad, FailureKeepsUnsortedPropertiesBeforeIt)
{
    const Disorder disorder(20000, 10000);
    Properties properties;
    std::istringstream stream(disorder.text + "z=\\x\n");
    EXPECT_THROW(properties.load(stream), std::invalid_argument);
    EXPECT_TRUE(disorder.expected == tableOf(properties));
}

TEST(PropertiesLoad, UnsortedTextIsInsertedBeforeWarningsBegin)
{
    const Disorder disorder(20000, 10000);
    const auto& [key, value] = *disorder.expected.begin();
    Properties properties;
    EXPECT_EQ("WARNING: x.conf:20002: Overriding property \"" + key + "\"\n",
              warningsOf(disorder.text + "%pragma severity warning\n" + key + "=x\n"
                             + "%pragma severity error\n" + key + "=" + value + "\n",
                         Properties::SEV_ERROR, properties));
    EXPECT_TRUE(disorder.expected == tableOf(properties));
}

TEST(PropertiesLoad, UnsortedTextMayContainEmptyKeys)
{
    Disorder disorder(10000, 5000);
    for (int i = 0; i < 1000; ++i) {
        disorder.text += "=\n=" + std::to_string(i) + "\n";
    }
    disorder.expected[""] = "999";
    EXPECT_EQ(disorder.expected, loaded(disorder.text));
}

// Keys whose common beginnings are longer than the bytes that sorting compares first.
TEST(PropertiesLoad, UnsortedKeysWithLongCommonBeginningsKeepTheirLatestValues)
{
    const String middle(20, 'm');
    Disorder disorder(10000, 5000);
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        // Some keys end where others have zero bytes.
        const String escapes = random() % 2 == 0 ? "" : "\\x00";
        const String bytes = escapes.empty() ? "" : String(1, '\0');
        const String number = std::to_string(random() % 3000);
        const String value = std::to_string(i);
        switch (random() % 3) {
        case 0:
            disorder.text += "a." + middle + number + escapes + "=" + value + "\n";
            disorder.expected["a." + middle + number + bytes] = value;
            break;
        case 1:
            disorder.text += "a." + number + escapes + "=" + value + "\n";
            disorder.expected["a." + number + bytes] = value;
            break;
        default:
            disorder.text += "a." + escapes + "\\xff" + middle + "=" + value + "\n";
            disorder.expected["a." + bytes + "\xff" + middle] = value;
            break;
        }
    }
    EXPECT_TRUE(disorder.expected == loaded(disorder.text));
}

TEST(PropertiesLoad, UnsortedTextMayContainALongLine)
{
    Disorder disorder(20000, 10000);
    const String value(9 << 20, 'v');
    disorder.text += "a.b=" + value + "\na=1\na.b=2\na.a=" + value + "\n";
    disorder.expected["a"] = "1";
    disorder.expected["a.b"] = "2";
    disorder.expected["a.a"] = value;
    EXPECT_TRUE(disorder.expected == loaded(disorder.text));
}

TEST(PropertiesLoad, WhiteSpaceIsThatOfIsspace)
{
    const String white_space = " \t\v\f\r";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        if (c == '\n' || c == '\\' || c == '=' || c == ':') {
            continue;
        }
        const String text = String("k") + c + "v";
        if (white_space.find(c) != String::npos) {
            EXPECT_THAT(loaded(text), ElementsAre(Pair("k", "v"))) << byte;
        } else {
            EXPECT_THAT(loaded(text), ElementsAre(Pair(text, ""))) << byte;
        }
    }
}

}
