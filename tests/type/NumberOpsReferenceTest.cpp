// Results, exceptions and `errno` of number parsing, compared with the functions that define them: strtol(),
// strtod() and the extraction from a stream.

#include <dalnim/type/NumberOps.hpp>

#include <tests/support/Files.hpp>
#include <tests/support/LongRun.hpp>
#include <support/StandardLibrary.hpp>

#include <gtest/gtest.h>

#include <sys/stat.h>
#ifdef __x86_64__
#include <fpu_control.h>
#include <xmmintrin.h>
#endif

#include <cerrno>
#include <cfenv>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::type::NumberOps;

enum Outcome { NUMBER, BAD_FORMAT, BAD_RANGE };

/** Outcome, value and `errno` of a conversion. */
template <class T>
struct Conversion
{
    Outcome outcome = NUMBER;
    T value = 0;
    /** `errno` after a success. */
    int error = 0;
};

/** Calls a function of the C library as it is declared for each type. */
template <class T>
auto convertByC(const char* text, char** end)
{
    if constexpr (std::is_same_v<T, double>) {
        return std::strtod(text, end);
    } else if constexpr (std::is_signed_v<T>) {
        return std::strtoll(text, end, 0);
    } else {
        return std::strtoull(text, end, 0);
    }
}

/** Returns true if the C function's value is too large for T, with the check that T has always had. */
template <class T, class Wide>
bool isOutside(Wide value)
{
    typedef std::numeric_limits<T> Limits;
    if constexpr (std::is_same_v<T, double>) {
        return std::isinf(value) && errno == ERANGE;
    } else if constexpr (std::is_same_v<T, unsigned long>) {
        return false;
    } else if constexpr (std::is_same_v<T, unsigned long long>) {
        return value == LLONG_MAX && errno == ERANGE;
    } else if constexpr (sizeof(T) == sizeof(long)) {
        return (value == Limits::min() || value == Limits::max()) && errno == ERANGE;
    } else {
        return value < Wide{Limits::min()} || value > Wide{Limits::max()};
    }
}

template <class T>
Conversion<T> reference(const String& text, int stale)
{
    if (text.empty()) {
        return {NUMBER, 0, stale};
    }
    errno = stale;
    if constexpr (std::is_same_v<T, float>) {
        std::istringstream stream(text);
        float value = 0;
        stream >> value;
        if (!stream || stream.rdbuf()->in_avail() > 0) {
            return {BAD_FORMAT};
        }
        return {NUMBER, value, errno};
    } else {
        char* end = nullptr;
        const auto value = convertByC<T>(text.c_str(), &end);
        if (*end != 0) {
            return {BAD_FORMAT};
        }
        if (isOutside<T>(value)) {
            return {BAD_RANGE};
        }
        return {NUMBER, static_cast<T>(value), errno};
    }
}

template <class T>
Conversion<T> parsed(const String& text, int stale)
{
    T result = 42;
    try {
        errno = stale;
        NumberOps::parse(result, text);
        return {NUMBER, result, errno};
    } catch (const std::invalid_argument&) {
        return {BAD_FORMAT, static_cast<T>(result - 42)};
    } catch (const std::out_of_range&) {
        return {BAD_RANGE, static_cast<T>(result - 42)};
    }
}

/** Returns true if two results are the same, including the sign of 0; all NaNs are the same. */
template <class T>
bool isSame(const Conversion<T>& a, const Conversion<T>& b)
{
    bool same = a.value == b.value;
    if constexpr (std::is_floating_point_v<T>) {
        same = same ? std::signbit(a.value) == std::signbit(b.value)
                    : std::isnan(a.value) && std::isnan(b.value);
    }
    return a.outcome == b.outcome && a.error == b.error && same;
}

template <class T>
testing::AssertionResult agrees(const String& text, int stale)
{
    const Conversion<T> expected = reference<T>(text, stale);
    const Conversion<T> found = parsed<T>(text, stale);
    if (isSame(expected, found)) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << '"' << text << "\" with errno " << stale << ": outcome " << found.outcome << ", value "
           << +found.value << ", errno " << found.error << " and not " << expected.outcome << ", "
           << +expected.value << ", " << expected.error;
}

typedef std::mt19937_64 Random;

/** The default is the same in each run; `--gtest_random_seed` selects others. */
Random newRandom()
{
    return Random(static_cast<unsigned int>(testing::UnitTest::GetInstance()->random_seed()));
}

String digits(Random& random, std::size_t count)
{
    String text(count, '0');
    for (char& c : text) {
        c = static_cast<char>('0' + random() % 10);
    }
    return text;
}

/** Returns a text of `format`, printf's, for `value`. */
template <class T>
String printed(const char* format, int precision, T value)
{
    char text[1200];
    static_cast<void>(std::snprintf(text, sizeof text, format, precision, value));
    return text;
}

/** Returns the decimal expansion of a number halfway between two neighbours, or right below or above that. */
template <class T, class Bits>
String nearHalfway(Random& random)
{
    const Bits bits = static_cast<Bits>(random() >> random() % (sizeof random() * CHAR_BIT));
    T value;
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) {
        return "1";
    }
    const long double middle =
        value + (std::nextafter(value, T(INFINITY)) - static_cast<long double>(value)) / 2;
    String text = printed("%.*Le", 780, middle);
    // The exact digits end before the exponent, so that one unit more or less in the last place is nearer.
    const std::size_t last = text.find('e') - 1;
    text[last] = "001"[random() % 3];
    return text;
}

/** Returns a real number in one of the forms that programs write, or in an unusual one. */
String randomReal(Random& random)
{
    const std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    switch (random() % 12) {
    case 0:
        return printed("%.*g", static_cast<int>(random() % 25), value);
    case 1:
        return printed("%.*f", static_cast<int>(random() % 12),
                       static_cast<double>(bits >> random() % 64) / 1e6);
    case 2:
        return printed("%.*e", static_cast<int>(random() % 800), value);
    case 3:
        return printed("%.*a", static_cast<int>(random() % 14), value);
    case 4:
        return nearHalfway<double, std::uint64_t>(random);
    case 5:
        return nearHalfway<float, std::uint32_t>(random);
    case 6:
        return digits(random, random() % 40) + '.' + digits(random, random() % 40);
    case 7:
        return digits(random, 1 + random() % 30) + 'e'
               + std::to_string(static_cast<int>(random() % 800) - 400);
    case 8:
        return digits(random, random() % 25) + '.' + digits(random, random() % 5) + "E-"
               + std::to_string(290 + random() % 60);
    case 9:
        return String(random() % 400, '0') + "." + String(random() % 400, '0')
               + digits(random, random() % 30);
    case 10:
        return printed("%.*g", 9, static_cast<double>(static_cast<float>(value)));
    default:
        return std::to_string(static_cast<int>(random()) >> random() % 31);
    }
}

/** Returns an integer, often at the limits of a type. */
String randomInteger(Random& random)
{
    static const int bits[] = {7, 8, 15, 16, 31, 32, 63};
    switch (random() % 8) {
    case 0:
        return printed("%#.*llx", 1, static_cast<unsigned long long>(random() >> random() % 64));
    case 1:
        return printed("%#.*llo", 1, static_cast<unsigned long long>(random() >> random() % 64));
    case 2:
        return std::to_string((1ULL << bits[random() % 7]) + random() % 5 - 2);
    case 3:
        return std::to_string(ULLONG_MAX - random() % 3);
    case 4:
        return digits(random, random() % 30);
    default:
        return std::to_string(random() >> random() % 64);
    }
}

/** Puts white space, a sign, or something that is no part of a number around most texts of `text`. */
String decorated(Random& random, const String& text)
{
    static const char* const heads[] = {" ",  "\t\r\n", "+",  " -",   " +", "- ",
                                        "--", "0",      "0x", "\v\f", "i",  "."};
    static const char* const tails[] = {" ", ".", "x", "e", "E+", "e5", "0", "\n", "-", "f", "L", "p3"};
    String result = random() % 2 != 0 ? "-" + text : text;
    const std::uint64_t choice = random() % 16;
    if (choice == 0) {
        result = heads[random() % 12] + result;
    } else if (choice == 1) {
        result += tails[random() % 12];
    } else if (choice == 2 && !result.empty()) {
        result[random() % result.size()] = static_cast<char>(random() % 8 == 0 ? 0 : random() % 128);
    }
    return result;
}

// Each one that throws takes thirty times as long with the sanitizers.
#ifdef DALNIM_SANITIZED
constexpr int SHORT_RUN = 5000;
#else
constexpr int SHORT_RUN = 100000;
#endif

int countOfTexts()
{
    return support::isLongRun() ? 5000000 : SHORT_RUN;
}

template <class T>
class NumberOpsReference : public testing::Test
{
};
typedef testing::Types<signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                       unsigned long, long long, unsigned long long, float, double>
    AnyNumber;
TYPED_TEST_SUITE(NumberOpsReference, AnyNumber, );

TYPED_TEST(NumberOpsReference, AgreesOnRandomNumbers)
{
    if (support::USES_LIBCXX && std::is_same_v<TypeParam, float>) {
        GTEST_SKIP() << "the reference is a stream, and those of libc++ accept other numbers";
    }
    Random random = newRandom();
    const int count = countOfTexts();
    for (int i = 0; i < count; ++i) {
        const bool real = std::is_floating_point_v<TypeParam> || i % 16 == 0;
        const String text = decorated(random, real ? randomReal(random) : randomInteger(random));
        ASSERT_TRUE(agrees<TypeParam>(text, i % 3 == 0 ? ERANGE : 0));
    }
}

TYPED_TEST(NumberOpsReference, AgreesOnTextsOfFewCharacters)
{
    if (support::USES_LIBCXX && std::is_same_v<TypeParam, float>) {
        GTEST_SKIP() << "the reference is a stream, and those of libc++ accept other numbers";
    }
    // All texts of up to four of these.
    const String bytes = String("019-+.exXain ", 13) + '\0';
    for (std::size_t length = 0; length <= 4; ++length) {
        std::size_t count = 1;
        for (std::size_t i = 0; i < length; ++i) {
            count *= bytes.size();
        }
#ifdef DALNIM_SANITIZED
        const std::size_t step = length == 4 ? 17 : 1;
#else
        const std::size_t step = 1;
#endif
        for (std::size_t index = 0; index < count; index += step) {
            String text;
            for (std::size_t i = 0, rest = index; i < length; ++i, rest /= bytes.size()) {
                text += bytes[rest % bytes.size()];
            }
            ASSERT_TRUE(agrees<TypeParam>(text, index % 2 == 0 ? ERANGE : 0));
        }
    }
}

template <class T>
class NumberOpsReal : public testing::Test
{
};
typedef testing::Types<float, double> Reals;
TYPED_TEST_SUITE(NumberOpsReal, Reals, );

TYPED_TEST(NumberOpsReal, ZeroKeepsItsSign)
{
    for (const char* const text : {"-0", "-0.0", "-0e10", "-.0", "-00"}) {
        TypeParam value = 1;
        NumberOps::parse(value, text);
        EXPECT_EQ(0, value);
        EXPECT_TRUE(std::signbit(value)) << text;
    }
}

TYPED_TEST(NumberOpsReal, UnderflowSetsErrno)
{
    typedef std::numeric_limits<TypeParam> Limits;
    const String belowNormal = printed("%.*e", 3, static_cast<double>(Limits::min()) / 3);
    for (const String& text :
         {String("1e-999"), String("-1e-999"), "0." + String(400, '0') + "1", belowNormal}) {
        TypeParam value = 1;
        errno = 0;
        NumberOps::parse(value, text);
        EXPECT_EQ(ERANGE, errno) << text;
        EXPECT_GT(Limits::min(), std::abs(value)) << text;
    }
    TypeParam value = 1;
    errno = 0;
    NumberOps::parse(value, "0e-999");
    EXPECT_EQ(0, errno);
}

TYPED_TEST(NumberOpsReal, AgreesAtTheLimits)
{
    if (support::USES_LIBCXX && std::is_same_v<TypeParam, float>) {
        GTEST_SKIP() << "the reference is a stream, and those of libc++ accept other numbers";
    }
    typedef std::numeric_limits<TypeParam> Limits;
    const double low = static_cast<double>(Limits::min());
    const double step = static_cast<double>(Limits::epsilon());
    for (const double factor : {1.0, 1 - step / 4, 1 - step / 2, 1 - step, 1 + step, 0.5, 2.0}) {
        for (int precision = 1; precision < 20; ++precision) {
            ASSERT_TRUE(agrees<TypeParam>(printed("%.*e", precision, low * factor), 0));
            ASSERT_TRUE(agrees<TypeParam>(printed("-%.*e", precision, low * factor), ERANGE));
        }
    }
    const long double largest = Limits::max();
    for (const long double factor :
         {1.0L, 1.0L - step / 4, 1.0L + step / 8, 1.0L + step / 4, 1.0L + step / 2}) {
        for (int precision = 1; precision < 40; ++precision) {
            ASSERT_TRUE(agrees<TypeParam>(printed("%.*Le", precision, largest * factor), 0));
            ASSERT_TRUE(agrees<TypeParam>(printed("-%.*Lf", precision, largest * factor), ERANGE));
        }
    }
    // Rounded to the lowest normal double, or to its neighbour below, from both sides.
    for (const char* const text : {"2.22507385850720131e-308", "2.225073858507201259e-308",
                                   "2.2250738585072012e-308", "2.2250738585072011e-308"}) {
        ASSERT_TRUE(agrees<TypeParam>(text, 0));
    }
}

/** Restores how the thread rounds. */
class Rounding
{
public:
    Rounding()
    {
        std::fegetenv(&before);
    }
    ~Rounding()
    {
        std::fesetenv(&before);
    }
    Rounding(const Rounding&) = delete;
    Rounding& operator=(const Rounding&) = delete;

private:
    std::fenv_t before;
};

TYPED_TEST(NumberOpsReal, RoundsAsTheThreadDoes)
{
    // 0.3 lies between these two doubles and 16777217 between these two floats.
    const bool wide = std::is_same_v<TypeParam, double>;
    const String text = wide ? "0.3" : "16777217";
    const TypeParam lower = static_cast<TypeParam>(wide ? 0x1.3333333333333p-2 : 16777216);
    const TypeParam upper = static_cast<TypeParam>(wide ? 0x1.3333333333334p-2 : 16777218);
    const Rounding restored;
    TypeParam value = 0;
    std::fesetround(FE_UPWARD);
    NumberOps::parse(value, text);
    EXPECT_EQ(upper, value);
    std::fesetround(FE_DOWNWARD);
    NumberOps::parse(value, text);
    EXPECT_EQ(lower, value);
    std::fesetround(FE_TOWARDZERO);
    NumberOps::parse(value, "-" + text);
    EXPECT_EQ(-lower, value);
    std::fesetround(FE_TONEAREST);
    NumberOps::parse(value, text);
    EXPECT_EQ(lower, value);
}

#ifdef __x86_64__
/** On other processors, all operations round as the thread does. */
TEST(NumberOpsDoubleRounding, FollowsTheControlWordThatStrtodFollows)
{
    const Rounding restored;
    double value = 0;
    _MM_SET_ROUNDING_MODE(_MM_ROUND_UP);
    NumberOps::parse(value, "0.3");
    EXPECT_EQ(0x1.3333333333333p-2, value);
    _MM_SET_ROUNDING_MODE(_MM_ROUND_NEAREST);

    fpu_control_t control;
    _FPU_GETCW(control);
    control = static_cast<fpu_control_t>((control & ~_FPU_RC_ZERO) | _FPU_RC_UP);
    _FPU_SETCW(control);
    NumberOps::parse(value, "0.3");
    EXPECT_EQ(0x1.3333333333334p-2, value);
}
#endif

/** A locale for numbers with a decimal comma, in effect in the process. */
class DecimalComma
{
public:
    DecimalComma()
    {
        const String folder = scratch.file("comma");
        EXPECT_EQ(0, mkdir(folder.c_str(), 0700));
        // A header, then the decimal point.
        String data = support::readFile("/usr/lib/locale/C.utf8/LC_NUMERIC");
        const std::size_t point = data.find('.', 32);
        if (point != String::npos) {
            data[point] = ',';
        }
        support::writeFile(folder + "/LC_NUMERIC", data);
        // The process has one thread.
        // NOLINTBEGIN(concurrency-mt-unsafe)
        setenv("LOCPATH", scratch.path().c_str(), 1);
        static_cast<void>(std::setlocale(LC_NUMERIC, "comma"));
        unsetenv("LOCPATH");
    }
    ~DecimalComma()
    {
        static_cast<void>(std::setlocale(LC_NUMERIC, "C"));
        // NOLINTEND(concurrency-mt-unsafe)
    }
    DecimalComma(const DecimalComma&) = delete;
    DecimalComma& operator=(const DecimalComma&) = delete;

    static bool isInEffect()
    {
        return std::strtod("1,5", nullptr) == 1.5;
    }

private:
    support::ScratchFolder scratch;
};

TEST(NumberOpsDoubleLocale, DecimalPointIsThatOfTheLocale)
{
    const DecimalComma locale;
    if (!locale.isInEffect()) {
        GTEST_SKIP() << "no locale could be derived from C.utf8";
    }
    double value = 0;
    NumberOps::parse(value, "1,5");
    EXPECT_EQ(1.5, value);
    EXPECT_THROW(NumberOps::parse(value, "2.5"), std::invalid_argument);
    EXPECT_EQ(1.5, value);
    NumberOps::parse(value, "25");
    EXPECT_EQ(25, value);
    // A stream has a locale of its own.
    float single = 0;
    NumberOps::parse(single, "2.5");
    EXPECT_EQ(2.5F, single);
}

class CommaAndGroups : public std::numpunct<char>
{
protected:
    char do_decimal_point() const override
    {
        return ',';
    }
    char do_thousands_sep() const override
    {
        return '.';
    }
    std::string do_grouping() const override
    {
        return "\3";
    }
};

TEST(NumberOpsFloatLocale, DecimalPointAndGroupsAreThoseOfTheGlobalLocale)
{
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaAndGroups));
    float value = 0;
    NumberOps::parse(value, "1.234,5");
    const float grouped = value;
    NumberOps::parse(value, "0,25");
    const float fraction = value;
    Outcome outcome = NUMBER;
    try {
        NumberOps::parse(value, "2.5");
    } catch (const std::invalid_argument&) {
        outcome = BAD_FORMAT;
    }
    double real = 0;
    NumberOps::parse(real, "2.5");
    std::locale::global(before);
    EXPECT_EQ(1234.5F, grouped);
    EXPECT_EQ(0.25F, fraction);
    EXPECT_EQ(BAD_FORMAT, outcome);
    EXPECT_EQ(2.5, real);
}

}
