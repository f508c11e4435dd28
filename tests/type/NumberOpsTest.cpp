#include <dalnim/type/NumberOps.hpp>

#include <tests/type/NumberOpsCheck.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::type::NumberOps;

static_assert(!std::is_constructible_v<NumberOps>);
static_assert(std::is_same_v<NumberOps::SInt64_t, long long>);
static_assert(std::is_same_v<NumberOps::UInt64_t, unsigned long long>);

template <class T>
using Returned = decltype(NumberOps::parse(std::declval<T&>(), std::declval<const String&>()));
static_assert(std::is_same_v<Returned<signed char>, signed char>);
static_assert(std::is_same_v<Returned<unsigned char>, unsigned char>);
static_assert(std::is_same_v<Returned<short>, short>);
static_assert(std::is_same_v<Returned<unsigned short>, unsigned short>);
static_assert(std::is_same_v<Returned<int>, int>);
static_assert(std::is_same_v<Returned<unsigned int>, unsigned int>);
static_assert(std::is_same_v<Returned<long>, long&>);
static_assert(std::is_same_v<Returned<unsigned long>, unsigned long&>);
static_assert(std::is_same_v<Returned<long long>, long long&>);
static_assert(std::is_same_v<Returned<unsigned long long>, unsigned long long&>);
static_assert(std::is_same_v<Returned<float>, float&>);
static_assert(std::is_same_v<Returned<double>, double&>);

/** Parses with a cleared `errno`. */
template <class T>
T parsed(const String& source)
{
    T result = 42;
    errno = 0;
    const T returned = NumberOps::parse(result, source);
    EXPECT_TRUE(returned == result || (returned != returned && result != result));
    return result;
}

enum Failure { NONE, FORMAT, RANGE };

template <class T>
Failure failure(const String& source, int stale = 0)
{
    T result = 42;
    try {
        errno = stale;
        NumberOps::parse(result, source);
        return NONE;
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ("Invalid string representation of numeric type.", error.what());
        EXPECT_EQ(42, result);
        return FORMAT;
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ("String representation exceeds capacity of numeric type.", error.what());
        EXPECT_EQ(42, result);
        return RANGE;
    }
}

template <class T>
class NumberOpsAny : public testing::Test
{
};
typedef testing::Types<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                       unsigned long, long long, unsigned long long, float, double>
    AnyNumber;
TYPED_TEST_SUITE(NumberOpsAny, AnyNumber, );

TYPED_TEST(NumberOpsAny, EmptyStringIs0)
{
    EXPECT_EQ(0, parsed<TypeParam>(""));
    EXPECT_EQ(NONE, failure<TypeParam>("", ERANGE));
}

TYPED_TEST(NumberOpsAny, SmallNumbers)
{
    EXPECT_EQ(0, parsed<TypeParam>("0"));
    EXPECT_EQ(0, parsed<TypeParam>("-0"));
    EXPECT_EQ(7, parsed<TypeParam>("7"));
    EXPECT_EQ(7, parsed<TypeParam>("+7"));
    EXPECT_EQ(100, parsed<TypeParam>("100"));
}

TYPED_TEST(NumberOpsAny, OnlyLeadingWhiteSpaceIsAccepted)
{
    EXPECT_EQ(5, parsed<TypeParam>(" 5"));
    EXPECT_EQ(5, parsed<TypeParam>(" \t\n\v\f\r+5"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("5 "));
    EXPECT_EQ(FORMAT, failure<TypeParam>("5\n"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("+ 5"));
}

TYPED_TEST(NumberOpsAny, NonNumbersAreABadFormat)
{
    for (const char* text : {" ", "x", "-", "+", "--1", "+-1", "1x", "1 2", "1,000", "0b1", "0xg", "."}) {
        EXPECT_EQ(FORMAT, failure<TypeParam>(text)) << text;
    }
}

TYPED_TEST(NumberOpsAny, ZeroByteEndsAllButFloat)
{
    // The stream that parses `float` reads past the zero byte.
    const bool seen = std::is_same_v<TypeParam, float>;
    EXPECT_EQ(seen ? FORMAT : NONE, failure<TypeParam>(String("12\0x", 4)));
    EXPECT_EQ(seen ? FORMAT : NONE, failure<TypeParam>(String("\0x", 2)));
    if (!seen) {
        EXPECT_EQ(12, parsed<TypeParam>(String("12\0x", 4)));
        EXPECT_EQ(0, parsed<TypeParam>(String("\0x", 2)));
    }
}

template <class T>
class NumberOpsInteger : public testing::Test
{
};
typedef testing::Types<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                       unsigned long, long long, unsigned long long>
    AnyInteger;
TYPED_TEST_SUITE(NumberOpsInteger, AnyInteger, );

TYPED_TEST(NumberOpsInteger, PrefixDeterminesTheBase)
{
    EXPECT_EQ(16, parsed<TypeParam>("0x10"));
    EXPECT_EQ(16, parsed<TypeParam>("0X10"));
    EXPECT_EQ(31, parsed<TypeParam>("0x1f"));
    EXPECT_EQ(31, parsed<TypeParam>("0x1F"));
    EXPECT_EQ(8, parsed<TypeParam>("010"));
    EXPECT_EQ(10, parsed<TypeParam>("10"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("08"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("0x"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("1f"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("0x 1"));
}

TYPED_TEST(NumberOpsInteger, FractionsAreABadFormat)
{
    EXPECT_EQ(FORMAT, failure<TypeParam>("1.5"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("1."));
    EXPECT_EQ(FORMAT, failure<TypeParam>("1e1"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("inf"));
}

TYPED_TEST(NumberOpsInteger, BadFormatIsReportedBeforeRange)
{
    EXPECT_EQ(FORMAT, failure<TypeParam>("99999999999999999999x"));
    EXPECT_EQ(FORMAT, failure<TypeParam>("-99999999999999999999 "));
}

TEST(NumberOpsNarrow, SignedChar)
{
    EXPECT_EQ(127, parsed<signed char>("127"));
    EXPECT_EQ(-128, parsed<signed char>("-128"));
    EXPECT_EQ(RANGE, failure<signed char>("128"));
    EXPECT_EQ(RANGE, failure<signed char>("-129"));
    EXPECT_EQ(RANGE, failure<signed char>("0x80"));
}

TEST(NumberOpsNarrow, UnsignedChar)
{
    EXPECT_EQ(255, parsed<unsigned char>("255"));
    EXPECT_EQ(255, parsed<unsigned char>("0xff"));
    EXPECT_EQ(RANGE, failure<unsigned char>("256"));
    EXPECT_EQ(RANGE, failure<unsigned char>("-1"));
}

TEST(NumberOpsNarrow, Short)
{
    EXPECT_EQ(32767, parsed<short>("32767"));
    EXPECT_EQ(-32768, parsed<short>("-32768"));
    EXPECT_EQ(RANGE, failure<short>("32768"));
    EXPECT_EQ(RANGE, failure<short>("-32769"));
}

TEST(NumberOpsNarrow, UnsignedShort)
{
    EXPECT_EQ(65535, parsed<unsigned short>("65535"));
    EXPECT_EQ(RANGE, failure<unsigned short>("65536"));
    EXPECT_EQ(RANGE, failure<unsigned short>("-1"));
}

TEST(NumberOpsNarrow, Int)
{
    EXPECT_EQ(2147483647, parsed<int>("2147483647"));
    EXPECT_EQ(INT_MIN, parsed<int>("-2147483648"));
    EXPECT_EQ(RANGE, failure<int>("2147483648"));
    EXPECT_EQ(RANGE, failure<int>("-2147483649"));
    EXPECT_EQ(-16, parsed<int>("-0x10"));
}

TEST(NumberOpsNarrow, UnsignedInt)
{
    EXPECT_EQ(4294967295U, parsed<unsigned int>("4294967295"));
    EXPECT_EQ(RANGE, failure<unsigned int>("4294967296"));
    EXPECT_EQ(RANGE, failure<unsigned int>("-1"));
}

TEST(NumberOpsNarrow, ValuesBeyondTheWidestTypeAreOutOfRange)
{
    for (const char* text : {"99999999999999999999", "0xffffffffffffffffff"}) {
        EXPECT_EQ(RANGE, failure<signed char>(text));
        EXPECT_EQ(RANGE, failure<unsigned char>(text));
        EXPECT_EQ(RANGE, failure<short>(text));
        EXPECT_EQ(RANGE, failure<unsigned short>(text));
        EXPECT_EQ(RANGE, failure<int>(text));
        EXPECT_EQ(RANGE, failure<unsigned int>(text));
    }
    EXPECT_EQ(RANGE, failure<int>("-99999999999999999999"));
    EXPECT_EQ(RANGE, failure<unsigned int>("-99999999999999999999"));
}

TEST(NumberOpsNarrow, NegativeNumbersWrapAroundIn64BitsForUnsignedTypes)
{
    EXPECT_EQ(1, parsed<unsigned char>("-18446744073709551615"));
    EXPECT_EQ(RANGE, failure<unsigned char>("-18446744073709551360"));
    EXPECT_EQ(255, parsed<unsigned char>("-18446744073709551361"));
}

TEST(NumberOpsNarrow, StaleErrnoIsIgnored)
{
    EXPECT_EQ(NONE, failure<signed char>("-128", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned char>("255", ERANGE));
    EXPECT_EQ(NONE, failure<short>("32767", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned short>("65535", ERANGE));
    EXPECT_EQ(NONE, failure<int>("2147483647", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned int>("4294967295", ERANGE));
}

template <class T>
class NumberOpsWideSigned : public testing::Test
{
};
typedef testing::Types<long, long long> WideSigned;
TYPED_TEST_SUITE(NumberOpsWideSigned, WideSigned, );

TYPED_TEST(NumberOpsWideSigned, OnlyValuesBeyondTheExtremesAreOutOfRange)
{
    EXPECT_EQ(LONG_MAX, parsed<TypeParam>("9223372036854775807"));
    EXPECT_EQ(LONG_MIN, parsed<TypeParam>("-9223372036854775808"));
    EXPECT_EQ(RANGE, failure<TypeParam>("9223372036854775808"));
    EXPECT_EQ(RANGE, failure<TypeParam>("-9223372036854775809"));
    EXPECT_EQ(RANGE, failure<TypeParam>("99999999999999999999"));
    EXPECT_EQ(RANGE, failure<TypeParam>("-99999999999999999999"));
}

TYPED_TEST(NumberOpsWideSigned, StaleErrnoRejectsOnlyTheExtremes)
{
    EXPECT_EQ(RANGE, failure<TypeParam>("9223372036854775807", ERANGE));
    EXPECT_EQ(RANGE, failure<TypeParam>("-9223372036854775808", ERANGE));
    EXPECT_EQ(NONE, failure<TypeParam>("9223372036854775806", ERANGE));
    EXPECT_EQ(NONE, failure<TypeParam>("-9223372036854775807", ERANGE));
    EXPECT_EQ(NONE, failure<TypeParam>("0", ERANGE));
    EXPECT_EQ(NONE, failure<TypeParam>("9223372036854775807", EINVAL));
}

TEST(NumberOpsWideUnsigned, LongIsNeverOutOfRange)
{
    EXPECT_EQ(ULONG_MAX, parsed<unsigned long>("18446744073709551615"));
    EXPECT_EQ(ULONG_MAX, parsed<unsigned long>("18446744073709551616"));
    EXPECT_EQ(ULONG_MAX, parsed<unsigned long>("99999999999999999999"));
    EXPECT_EQ(ULONG_MAX, parsed<unsigned long>("-1"));
    EXPECT_EQ(1U, parsed<unsigned long>("-18446744073709551615"));
    EXPECT_EQ(ULONG_MAX, parsed<unsigned long>("-99999999999999999999"));
    EXPECT_EQ(NONE, failure<unsigned long>("18446744073709551615", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned long>("9223372036854775807", ERANGE));
}

TEST(NumberOpsWideUnsigned, OverflowOf64BitsIsAccepted)
{
    EXPECT_EQ(ULLONG_MAX, parsed<unsigned long long>("18446744073709551615"));
    EXPECT_EQ(ULLONG_MAX, parsed<unsigned long long>("99999999999999999999"));
    EXPECT_EQ(ULLONG_MAX, parsed<unsigned long long>("-1"));
    EXPECT_EQ(0x7FFFFFFFFFFFFFFFU, parsed<unsigned long long>("9223372036854775807"));
    EXPECT_EQ(NONE, failure<unsigned long long>("99999999999999999999", ERANGE));
}

TEST(NumberOpsWideUnsigned, HighestSignedValueOf64BitsFailsWithStaleErrno)
{
    EXPECT_EQ(RANGE, failure<unsigned long long>("9223372036854775807", ERANGE));
    EXPECT_EQ(RANGE, failure<unsigned long long>("0x7fffffffffffffff", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned long long>("9223372036854775808", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned long long>("9223372036854775806", ERANGE));
    EXPECT_EQ(NONE, failure<unsigned long long>("9223372036854775807", EINVAL));
}

TEST(NumberOpsFloat, AcceptsOnlyDecimal)
{
    EXPECT_EQ(1.5F, parsed<float>("1.5"));
    EXPECT_EQ(-1.5e-3F, parsed<float>("-1.5e-3"));
    EXPECT_EQ(0.5F, parsed<float>(".5"));
    EXPECT_EQ(5.0F, parsed<float>("5."));
    EXPECT_EQ(10.0F, parsed<float>("010"));
    EXPECT_EQ(FORMAT, failure<float>("0x10"));
    EXPECT_EQ(FORMAT, failure<float>("0x1p3"));
    EXPECT_EQ(FORMAT, failure<float>("1.5x"));
    EXPECT_EQ(FORMAT, failure<float>("1e"));
    EXPECT_EQ(FORMAT, failure<float>("inf"));
    EXPECT_EQ(FORMAT, failure<float>("nan"));
}

TEST(NumberOpsFloat, OverflowIsABadFormat)
{
    EXPECT_EQ(FLT_MAX, parsed<float>("3.4028234663852886e38"));
    EXPECT_EQ(FORMAT, failure<float>("3.5e38"));
    EXPECT_EQ(FORMAT, failure<float>("1e999"));
    EXPECT_EQ(FORMAT, failure<float>("-1e999"));
    EXPECT_EQ(0.0F, parsed<float>("1e-999"));
    EXPECT_EQ(NONE, failure<float>("1.5", ERANGE));
}

TEST(NumberOpsDouble, AgreesWithStrtod)
{
    EXPECT_EQ(1.5, parsed<double>("1.5"));
    EXPECT_EQ(-1.5e-3, parsed<double>("-1.5e-3"));
    EXPECT_EQ(0.5, parsed<double>(".5"));
    EXPECT_EQ(10.0, parsed<double>("010"));
    EXPECT_EQ(16.0, parsed<double>("0x10"));
    EXPECT_EQ(24.0, parsed<double>("0x1.8p4"));
    EXPECT_EQ(FORMAT, failure<double>("1.5x"));
    EXPECT_EQ(FORMAT, failure<double>("1e"));
    EXPECT_EQ(FORMAT, failure<double>("1.5 "));
}

TEST(NumberOpsDouble, OverflowIsOutOfRange)
{
    EXPECT_EQ(DBL_MAX, parsed<double>("1.7976931348623157e308"));
    EXPECT_EQ(-DBL_MAX, parsed<double>("-1.7976931348623157e308"));
    EXPECT_EQ(RANGE, failure<double>("1.8e308"));
    EXPECT_EQ(RANGE, failure<double>("1e999"));
    EXPECT_EQ(RANGE, failure<double>("-1e999"));
    EXPECT_EQ(FORMAT, failure<double>("1e999x"));
}

TEST(NumberOpsDouble, UnderflowIsAccepted)
{
    EXPECT_EQ(0.0, parsed<double>("1e-999"));
    EXPECT_EQ(4.9406564584124654e-324, parsed<double>("5e-324"));
}

TEST(NumberOpsDouble, InfinityIsAcceptedUnlessErrnoIsStale)
{
    EXPECT_EQ(HUGE_VAL, parsed<double>("inf"));
    EXPECT_EQ(-HUGE_VAL, parsed<double>("-INFINITY"));
    EXPECT_TRUE(std::isnan(parsed<double>("nan")));
    EXPECT_EQ(RANGE, failure<double>("inf", ERANGE));
    EXPECT_EQ(RANGE, failure<double>("-inf", ERANGE));
    EXPECT_EQ(NONE, failure<double>("inf", EINVAL));
    EXPECT_EQ(NONE, failure<double>("nan", ERANGE));
    EXPECT_EQ(NONE, failure<double>("1.7976931348623157e308", ERANGE));
}

TEST(NumberOps, WideResultsAreReturnedByReference)
{
    long l = 1;
    unsigned long ul = 1;
    long long ll = 1;
    unsigned long long ull = 1;
    float f = 1;
    double d = 1;
    EXPECT_EQ(&l, &NumberOps::parse(l, ""));
    EXPECT_EQ(&ul, &NumberOps::parse(ul, "5"));
    EXPECT_EQ(&ll, &NumberOps::parse(ll, "5"));
    EXPECT_EQ(&ull, &NumberOps::parse(ull, ""));
    EXPECT_EQ(&f, &NumberOps::parse(f, "5"));
    EXPECT_EQ(&d, &NumberOps::parse(d, ""));
}

TEST(NumberOps, ErrnoIsNotCleared)
{
    int result = 0;
    errno = EINTR;
    NumberOps::parse(result, "5");
    EXPECT_EQ(EINTR, errno);
}

/** Returns a number, valid or malformed, mostly close to the limits of a type. */
String randomText(std::mt19937_64& random)
{
    static const char* const heads[] = {"", " ", "\t\n", "-", "+", " -", "- ", "x"};
    static const char* const tails[] = {"", "", "", "", " ", "x", ".", ".5", "e3", "e-3", "e400", "p2"};
    static const char* const prefixes[] = {"", "", "0", "0x", "0X"};
    String text = heads[random() % 8];
    text += prefixes[random() % 5];
    static const int bits[] = {7, 8, 15, 16, 31, 32, 63, 64};
    const unsigned long long near = (1ULL << (bits[random() % 8] % 64)) + random() % 5 - 2;
    switch (random() % 4) {
    case 0:
        text += std::to_string(random() >> random() % 64);
        break;
    case 1:
        text += std::to_string(random()) + std::to_string(random() % 1000);
        break;
    case 2:
        text += std::to_string(near);
        break;
    default: {
        char digits[20];
        std::snprintf(digits, sizeof digits, random() % 2 ? "%llx" : "%llo", near);
        text += digits;
    }
    }
    return text + tails[random() % 12];
}

// Most of them throw, which takes thirty times as long with the sanitizers.
#ifdef DALNIM_SANITIZED
constexpr int TEXTS = 2000;
#else
constexpr int TEXTS = 20000;
#endif

TEST(NumberOps, AgreesWithTheModel)
{
    std::mt19937_64 random(73);
    for (int i = 0; i < TEXTS; ++i) {
        const String text = randomText(random);
        ASSERT_EQ("", numbermodel::disagreement(text, i % 2 == 0 ? 0 : ERANGE)) << text;
    }
}

TEST(NumberOps, AgreesWithTheModelOnMalformedNumbers)
{
    std::mt19937_64 random(74);
    const String bytes = String("0123456789+-.exXabfpINn \t", 25) + '\0';
    for (int i = 0; i < TEXTS; ++i) {
        String text(random() % 6, '\0');
        for (char& c : text) {
            c = bytes[random() % bytes.size()];
        }
        ASSERT_EQ("", numbermodel::disagreement(text, i % 2 == 0 ? 0 : ERANGE)) << text;
    }
}

}
