#include <dalnim/io/Properties.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <ctime>
#include <map>
#include <random>
#include <sstream>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::io::Properties;

typedef std::map<String, String> Table;

String stored(const Properties& properties, const String& header = "")
{
    std::ostringstream stream;
    EXPECT_EQ(&stream, &properties.store(stream, header));
    EXPECT_TRUE(stream.good());
    return stream.str();
}

/** Returns the text without the line that contains the time. */
String storedBody(const Properties& properties)
{
    const String text = stored(properties);
    return text.substr(text.find('\n') + 1);
}

/** Keys and values that the format can restore. */
bool canCarryKey(const String& key)
{
    if (key.empty() || key[0] == '#' || key[0] == '!' || key[0] == '%') {
        return false;
    }
    for (const char c : key) {
        if (c == '=' || c == ':' || isspace(static_cast<unsigned char>(c)) != 0) {
            return false;
        }
    }
    return true;
}

bool canCarryValue(const String& value)
{
    // A trailing space is written unescaped, and trimmed when it is read. All other white space is written as
    // an escape.
    return value.empty() || (isspace(static_cast<unsigned char>(value.front())) == 0 && value.back() != ' ');
}

TEST(PropertiesStore, EmptyTableStoresOnlyTheTime)
{
    EXPECT_EQ("", storedBody(Properties()));
}

TEST(PropertiesStore, HeaderPrecedesTheTime)
{
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    const String text = stored(Properties(), "head\nof file");
    unsetenv("TZ");
    tzset();
    EXPECT_THAT(text,
                testing::MatchesRegex("#head\nof file\n#[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9][0-9] "
                                      "[0-9][0-9]:[0-9][0-9]:[0-9][0-9] \\+0530 [0-9][0-9][0-9][0-9]\n"));
}

TEST(PropertiesStore, TimeIsTheCurrentLocalTime)
{
    const std::time_t before = std::time(nullptr);
    const String text = stored(Properties());
    const std::time_t after = std::time(nullptr);
    std::tm read = {};
    ASSERT_EQ(text.c_str() + text.size(), strptime(text.c_str(), "#%a %b %d %H:%M:%S %z %Y\n", &read));
    const long offset = read.tm_gmtoff;
    const std::time_t written = timegm(&read) - offset;
    EXPECT_LE(before, written);
    EXPECT_GE(after, written);
}

TEST(PropertiesStore, PropertiesAreInTheOrderOfKeys)
{
    Properties properties;
    properties.setProperty("b", "2");
    properties.setProperty("a", "");
    properties.setProperty("B", "1");
    EXPECT_EQ("B=1\na=\nb=2\n", storedBody(properties));
}

TEST(PropertiesStore, AllBytesHaveTheirEscapes)
{
    Properties properties;
    String all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    properties.setProperty(all, all);
    const String escaped =
        "\\u0000\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\a\\b\\t\\n\\v\\f\\r\\u000E\\u000F"
        "\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017"
        "\\u0018\\u0019\\u001A\\u001B\\u001C\\u001D\\u001E\\u001F"
        " !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
        "[\\\\]^_`abcdefghijklmnopqrstuvwxyz{|}~\\u007F"
        "\\u0080\\u0081\\u0082\\u0083\\u0084\\u0085\\u0086\\u0087"
        "\\u0088\\u0089\\u008A\\u008B\\u008C\\u008D\\u008E\\u008F"
        "\\u0090\\u0091\\u0092\\u0093\\u0094\\u0095\\u0096\\u0097"
        "\\u0098\\u0099\\u009A\\u009B\\u009C\\u009D\\u009E\\u009F"
        "\\u00A0\\u00A1\\u00A2\\u00A3\\u00A4\\u00A5\\u00A6\\u00A7"
        "\\u00A8\\u00A9\\u00AA\\u00AB\\u00AC\\u00AD\\u00AE\\u00AF"
        "\\u00B0\\u00B1\\u00B2\\u00B3\\u00B4\\u00B5\\u00B6\\u00B7"
        "\\u00B8\\u00B9\\u00BA\\u00BB\\u00BC\\u00BD\\u00BE\\u00BF"
        "\\u00C0\\u00C1\\u00C2\\u00C3\\u00C4\\u00C5\\u00C6\\u00C7"
        "\\u00C8\\u00C9\\u00CA\\u00CB\\u00CC\\u00CD\\u00CE\\u00CF"
        "\\u00D0\\u00D1\\u00D2\\u00D3\\u00D4\\u00D5\\u00D6\\u00D7"
        "\\u00D8\\u00D9\\u00DA\\u00DB\\u00DC\\u00DD\\u00DE\\u00DF"
        "\\u00E0\\u00E1\\u00E2\\u00E3\\u00E4\\u00E5\\u00E6\\u00E7"
        "\\u00E8\\u00E9\\u00EA\\u00EB\\u00EC\\u00ED\\u00EE\\u00EF"
        "\\u00F0\\u00F1\\u00F2\\u00F3\\u00F4\\u00F5\\u00F6\\u00F7"
        "\\u00F8\\u00F9\\u00FA\\u00FB\\u00FC\\u00FD\\u00FE\\u00FF";
    EXPECT_EQ(escaped + "=" + escaped + "\n", storedBody(properties));
}

TEST(PropertiesStore, NothingElseIsEscaped)
{
    Properties properties;
    properties.setProperty("#a =:b", " #!%=: c ");
    EXPECT_EQ("#a =:b= #!%=: c \n", storedBody(properties));
}

TEST(PropertiesStore, IgnoresTheFormatFlagsOfTheStream)
{
    Properties properties;
    properties.setProperty("k", "v");
    std::ostringstream stream;
    stream.width(200);
    stream.fill('*');
    properties.store(stream, "h");
    EXPECT_EQ(0u, stream.str().find("#h\n#"));
    EXPECT_THAT(stream.str(), testing::EndsWith("\nk=v\n"));
    EXPECT_THAT(stream.str(), testing::Not(testing::HasSubstr("*")));
}

TEST(PropertiesStore, FlushesTheStream)
{
    class Counting : public std::stringbuf
    {
    public:
        int flushes = 0;

    protected:
        int sync() override
        {
            ++flushes;
            return 0;
        }
    };
    Counting buffer;
    std::ostream stream(&buffer);
    Properties properties;
    properties.setProperty("a", "1");
    properties.setProperty("b", "2");
    properties.store(stream, "");
    EXPECT_EQ(1, buffer.flushes);
}

TEST(PropertiesStore, StreamStateShowsAFailure)
{
    std::ostream stream(nullptr);
    EXPECT_TRUE(Properties().store(stream, "head").bad());
}

TEST(PropertiesStore, KeysWithSeparatorsAndLeadingSpacesAreNotRestored)
{
    const auto reloaded = [](const String& key, const String& value) {
        Properties properties;
        properties.setProperty(key, value);
        std::istringstream stream(stored(properties));
        const Properties read(stream);
        return Table(read.begin(), read.end());
    };
    EXPECT_EQ(Table({{"a", "b=v"}}), reloaded("a=b", "v"));
    EXPECT_EQ(Table({{"a", "b=v"}}), reloaded("a b", "v"));
    EXPECT_EQ(Table({{"k", "v"}}), reloaded("k", " \tv"));
    EXPECT_EQ(Table(), reloaded("#k", "v"));
    EXPECT_EQ(Table(), reloaded("!k", "v"));
    EXPECT_EQ(Table(), reloaded("%k", "v"));
}

TEST(PropertiesStore, RestorablePropertiesRoundTrip)
{
    std::mt19937 random(8102);
    const auto text = [&random](std::size_t longest) {
        String result(random() % (longest + 1), ' ');
        // Either any byte, or one of the special characters.
        const bool any = random() % 2 == 0;
        const String special = "\\ =:#!%ux0417n\n\r\t\"";
        for (char& c : result) {
            c = any ? static_cast<char>(random() % 256) : special[random() % special.size()];
        }
        return result;
    };

    std::size_t carried = 0;
    for (int round = 0; round < 2000; ++round) {
        Properties properties;
        for (auto i = random() % 20; i > 0; --i) {
            const String key = text(12);
            const String value = text(30);
            if (canCarryKey(key) && canCarryValue(value)) {
                properties.setProperty(key, value);
            }
        }
        carried += properties.size();
        std::istringstream stream(stored(properties, "round trip"));
        const Properties read(stream);
        ASSERT_EQ(Table(properties.begin(), properties.end()), Table(read.begin(), read.end()))
            << stream.str();
    }
    EXPECT_LT(4000u, carried);
}

TEST(PropertiesStore, TrailingSpacesAreRestoredIfKept)
{
    Properties properties;
    properties.setProperty("k", "v  ");
    std::istringstream stream(stored(properties));
    EXPECT_EQ("v  ", Properties(stream, true).getProperty("k"));
}

}
