// Fields of records: how they are written, and how FieldReader finds them.

#include "Loggers.hpp"

#include <dalnim/log/Field.hpp>
#include <dalnim/log/FieldReader.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

using namespace logtest;
using log::field;
using log::FieldReader;

template <class Value>
String written(std::string_view name, const Value& value)
{
    std::ostringstream os;
    os << field(name, value);
    return os.str();
}

/** The fields of a text, as "name:value|". */
String fieldsOf(std::string_view text)
{
    String found;
    for (FieldReader fields(text); fields.next();) {
        found.append(fields.name()).append(1, ':').append(fields.value()).append(1, '|');
    }
    return found;
}

TEST(Field, IsWrittenWhereItIsInserted)
{
    std::ostringstream os;
    os << "payment" << field("user", 17) << " failed" << field("reason", "card expired");
    EXPECT_EQ("payment user=17 failed reason=\"card expired\"", os.str());
}

TEST(Field, TextWithoutSpecialCharactersHasNoQuotes)
{
    EXPECT_EQ(" path=/var/log/a.log", written("path", "/var/log/a.log"));
    EXPECT_EQ(" path=C:\\new", written("path", String("C:\\new")));
    EXPECT_EQ(" name=\xc3\xa9\x80\xff'~", written("name", std::string_view("\xc3\xa9\x80\xff'~")));
    char buffer[] = "text";
    char* const pointer = buffer;
    EXPECT_EQ(" a=text", written("a", buffer));
    EXPECT_EQ(" a=text", written("a", pointer));
    EXPECT_EQ(" a=x", written("a", 'x'));
}

TEST(Field, TextThatWouldBeAmbiguousIsQuoted)
{
    EXPECT_EQ(" a=\"\"", written("a", ""));
    EXPECT_EQ(" a=\"\"", written("a", static_cast<const char*>(nullptr)));
    EXPECT_EQ(" a=\"b c\"", written("a", "b c"));
    EXPECT_EQ(" a=\"b=c\"", written("a", "b=c"));
    EXPECT_EQ(" a=\"\\\"b\\\"\"", written("a", "\"b\""));
    EXPECT_EQ(" a=\"C:\\\\my files\"", written("a", "C:\\my files"));
    EXPECT_EQ(" a=\" \"", written("a", ' '));
}

TEST(Field, ControlCharactersAreEscapedInQuotes)
{
    EXPECT_EQ(" a=\"\\n\\t\\r\"", written("a", "\n\t\r"));
    EXPECT_EQ(" a=\"x\\x00\\x01\\x0b\\x0c\\x1b[2J\\x7f\"", written("a", String("x\0\1\v\f\x1b[2J\x7f", 10)));
    EXPECT_EQ(" a=\"\\x00\"", written("a", '\0'));
}

TEST(Field, LongNamesAndValuesAreWrittenCompletely)
{
    // Also those that end at each place near the end of the buffer of a field.
    for (std::size_t size = 100; size < 600; ++size) {
        const String text(size, 'x');
        EXPECT_EQ(" a=" + text, written("a", text)) << size;
        EXPECT_EQ(" " + text + "=1", written(text, 1)) << size;
        EXPECT_EQ(" a=\"" + text + "\\n" + text + "\"", written("a", text + '\n' + text)) << size;
    }
}

TEST(Field, NumbersAreDecimalWhateverFormatsTheStreamHas)
{
    struct Grouping : std::numpunct<char>
    {
        char do_thousands_sep() const override
        {
            return '.';
        }
        String do_grouping() const override
        {
            return "\3";
        }
    };
    std::ostringstream os;
    os.imbue(std::locale(std::locale::classic(), new Grouping));
    os << std::hex << std::showbase << std::setfill('*') << std::setw(40) << std::setprecision(2);
    os << field("i", -1234567) << field("u", std::numeric_limits<std::uint64_t>::max())
       << field("l", std::numeric_limits<std::int64_t>::min()) << field("c", std::uint8_t(200))
       << field("s", std::int8_t(-5)) << field("d", 1234.5678) << field("f", 0.1F) << field("e", 1e300)
       << field("x", 0.5L) << field("yes", true) << field("no", false);
    EXPECT_EQ(
        " i=-1234567 u=18446744073709551615 l=-9223372036854775808 c=200 s=-5 d=1234.5678 f=0.1 e=1e+300"
        " x=0.5 yes=true no=false",
        os.str());
    EXPECT_EQ(0, os.width());
}

TEST(Field, OtherValuesAreWrittenAsStreamsShowThem)
{
    std::ostringstream os;
    os << std::hex << field("code", std::make_error_code(std::errc::no_such_file_or_directory))
       << field("severity", log::Severity_FATAL);
    EXPECT_EQ(" code=generic:2 severity=7", os.str());
}

struct Customer
{
    const char* name;
};

std::ostream& operator<<(std::ostream& os, const Customer& customer)
{
    return os << std::hex << 255 << ' ' << customer.name << field("inner", "x y");
}

TEST(Field, ValueOfAnotherTypeIsQuotedIfItMustBe)
{
    std::ostringstream os;
    os << field("customer", Customer{"Ann"}) << 255;
    EXPECT_EQ(" customer=\"ff Ann inner=\\\"x y\\\"\"255", os.str());
}

struct Failing
{};

std::ostream& operator<<(std::ostream& os, const Failing&)
{
    os << "half";
    throw std::runtime_error("cannot be shown");
}

TEST(Field, ExceptionOfAValueLeavesNoPartOfTheField)
{
    std::ostringstream os;
    EXPECT_THROW(os << "text" << field("a", Failing()), std::runtime_error);
    EXPECT_EQ("text", os.str());
    EXPECT_TRUE(os.good());
}

TEST(Field, CharactersThatANameCannotHaveAreReplaced)
{
    EXPECT_EQ(" _=1", written("", 1));
    EXPECT_EQ(" _nd=1", written("2nd", 1));
    EXPECT_EQ(" _a=1", written("-a", 1));
    EXPECT_EQ(" a_b__c__=1", written("a b=\"c\xc3\xa9", 1));
    EXPECT_EQ(" _a.B-2_=1", written("_a.B-2_", 1));
}

TEST(Field, IsPartOfTheRecord)
{
    OwnLogger logger;
    log::Module module("shop", logger.write);
    NIM_LOG_TO(module, Severity_ERROR) << "failed" << field("user", 17) << field("who", Customer{"Ann"});
    EXPECT_EQ("shop ERROR FieldTest.cpp : failed user=17 who=\"ff Ann inner=\\\"x y\\\"\"\n", logger.taken());
    logger.write.setEscapeControls(true);
    NIM_LOG_TO(module, Severity_ERROR) << field("text", "a\nb");
    EXPECT_EQ("shop ERROR FieldTest.cpp :  text=\"a\\\\nb\"\n", logger.taken());
}

TEST(Field, StreamThatHasFailedIsLeftAlone)
{
    std::ostringstream os;
    os.setstate(std::ios_base::failbit);
    os << field("a", 1) << field("b", Customer{"Ann"});
    EXPECT_EQ("", os.str());
}

TEST(FieldReader, FindsFieldsAnywhereInAText)
{
    EXPECT_EQ("user:17|reason:card expired|", fieldsOf("failed user=17 at last reason=\"card expired\""));
    EXPECT_EQ("a:1|b:2|c:3|", fieldsOf("a=1\tb=2\n  c=3 \n"));
    EXPECT_EQ("a:1|a:2|", fieldsOf("a=1 a=2"));
    EXPECT_EQ("", fieldsOf(""));
    EXPECT_EQ("", fieldsOf(" \n"));
    EXPECT_EQ("", fieldsOf("no fields at all"));
}

TEST(FieldReader, RemovesQuotesAndEscapes)
{
    EXPECT_EQ("a:\"\\\n\t\r|", fieldsOf("a=\"\\\"\\\\\\n\\t\\r\""));
    EXPECT_EQ(String("a:\0\x1b\x7f\xff|", 7), fieldsOf("a=\"\\x00\\x1b\\x7F\\xff\""));
    EXPECT_EQ("a:\x09\x90\xa0\x0f\xaf\xfa|", fieldsOf("a=\"\\x09\\x90\\xa0\\x0f\\xAF\\xFA\""));
    EXPECT_EQ("", fieldsOf("a=\"\\x0:\" b=\"\\x/0\" c=\"\\x`0\" d=\"\\x0g\" e=\"\\x@0\" f=\"\\x0G\""));
    EXPECT_EQ("a:|b:x=y z|", fieldsOf("a=\"\" b=\"x=y z\""));
    EXPECT_EQ("path:C:\\new|", fieldsOf("path=C:\\new")) << "no escapes without quotes";
}

TEST(FieldReader, SkipsWordsThatAreNotFields)
{
    EXPECT_EQ("last:1|", fieldsOf("a= 5 = =b 1c=2 -d=3 e==f g=h=i j=k\"l m.n last=1"));
    EXPECT_EQ("last:1|", fieldsOf("a=\"b\"c d=\"e last=1"));
    EXPECT_EQ("last:1|", fieldsOf("a=\"\\q\" b=\"\\x0g\" c=\"\\x0 d=\"e\nf\" last=1"));
    EXPECT_EQ("", fieldsOf("(user=17 \"user=17 a\x01=2 a=\x01 caf\xc3\xa9=2"));
    EXPECT_EQ("", fieldsOf("a=\""));
    EXPECT_EQ("", fieldsOf("a=\"\\"));
    EXPECT_EQ("", fieldsOf("a="));
    EXPECT_EQ("", fieldsOf("a"));
}

TEST(FieldReader, FieldsInsideOfAQuotedValueAreNotFound)
{
    EXPECT_EQ("a:b=1 c=2|d:3|", fieldsOf("a=\"b=1 c=2\" d=3"));
}

TEST(FieldReader, ReadsEachByteThatFieldWrites)
{
    for (int byte = 0; byte < 256; ++byte) {
        const String value = {'x', static_cast<char>(byte), 'y', static_cast<char>(byte)};
        EXPECT_EQ("a:" + value + "|b:1|", fieldsOf("text" + written("a", value) + written("b", 1))) << byte;
    }
}

TEST(FieldReader, ComparesAValueWithoutItsEscapes)
{
    FieldReader fields("a=17 b=\"x \\\"y\\\"\"");
    ASSERT_TRUE(fields.next());
    EXPECT_TRUE(fields.hasValue("17"));
    EXPECT_FALSE(fields.hasValue("1"));
    EXPECT_FALSE(fields.hasValue("170"));
    ASSERT_TRUE(fields.next());
    EXPECT_EQ("b", fields.name());
    EXPECT_TRUE(fields.hasValue("x \"y\""));
    EXPECT_FALSE(fields.hasValue("x \"y"));
    EXPECT_FALSE(fields.hasValue("x \"y\"z"));
    EXPECT_FALSE(fields.hasValue("x \"z\""));
    EXPECT_FALSE(fields.next());
    EXPECT_FALSE(fields.next());
}

}
