#include <dalnim/dalbase.hpp>

#include <dalnim/type/NumberOps.hpp>

#include <dalnim/sys/StackTrack.hpp>

#include <langinfo.h>

#include <cerrno>
#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace com::kor::dal::nim::type {

namespace {

constexpr const char* CLASS_NAME = NumberOps::CLASS_NAME;

[[noreturn]] void throw_bad_format(unsigned int line)
{
    const sys::StackTrack track("parse()", CLASS_NAME, NAMESPACE_NAME, line);
    throw std::invalid_argument("Invalid string representation of numeric type.");
}

[[noreturn]] void throw_bad_range(unsigned int line)
{
    const sys::StackTrack track("parse()", CLASS_NAME, NAMESPACE_NAME, line);
    throw std::out_of_range("String representation exceeds capacity of numeric type.");
}

/** Returns true unless `source`, which must not be empty, starts with white space or "+". */
bool startsPlain(const String& source)
{
    return source.front() >= '-';
}

/** Sets `value` and returns true if std::from_chars() accepts all of `source`. May set it otherwise, too. */
template <class T>
bool convertAll(T& value, const String& source)
{
    const char* const end = source.data() + source.size();
    const std::from_chars_result parsed = std::from_chars(source.data(), end, value);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

/**
 * Sets `value` and returns true if `source`, which must not be empty, is a decimal integer without white
 * space or "+": std::from_chars() converts it to the same value as strtol(), in half the time. May set
 * `value` otherwise, too.
 */
template <class T>
bool convertPlainInteger(T& value, const String& source)
{
    // A leading 0 selects another base.
    const char* const digits = source.c_str() + (source.front() == '-' ? 1 : 0);
    return startsPlain(source) && *digits != '0' && convertAll(value, source);
}

/** Returns true if the decimal point of strtod() is ".". */
bool isDecimalPointPlain()
{
    // Thread-safe in the GNU C library, which returns a string of the locale.
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    const char* const point = nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == '\0';
}

#ifdef __cpp_lib_to_chars

/**
 * Returns true if strtod() and std::from_chars() both round to nearest. On x86-64, strtod() obeys the mode of
 * the x87, which std::fegetround() returns; std::from_chars() multiplies in SSE registers.
 */
bool roundsToNearest()
{
    // Reading the control register of SSE takes ten times as long as this sum and this difference. The
    // operand is volatile, so that they are computed here and not by the compiler.
    static const volatile float small = 1e-30F;
    const float tiny = small;
    return std::fegetround() == FE_TONEAREST && 1 + tiny == 1 - tiny;
}

/**
 * Like convertPlainInteger(), for a decimal real number whose decimal point is ".". Returns false for
 * infinity and NaN, and for values that the C functions convert with a change of `errno`: those that are too
 * large, or smaller than a normal number.
 */
template <class T>
bool convertPlainReal(T& value, const String& source)
{
    if (!startsPlain(source) || !roundsToNearest() || !convertAll(value, source)) {
        return false;
    }
    typedef std::numeric_limits<T> Limits;
    const T magnitude = std::abs(value);
    // A smaller value may have been rounded up to min(). One that was rounded to 0 has been rejected above.
    return (magnitude > Limits::min() && magnitude <= Limits::max()) || magnitude == 0;
}

#else

/** For a C++ library whose std::from_chars() converts integers only: the C functions convert every value. */
template <class T>
bool convertPlainReal(T&, const String&)
{
    return false;
}

#endif

#ifdef _LIBCPP_VERSION

const locale_t c_locale = ::newlocale(LC_ALL_MASK, "C", nullptr);

/**
 * Parses all of `source` as a stream of libstdc++ does in the classic locale. Those of libc++ also accept
 * hexadecimal numbers, infinity and NaN, and reject values that are too small.
 */
bool convertAsClassicStream(float& result, const String& source)
{
    const std::size_t start = source.find_first_not_of(" \t\n\v\f\r");
    if (start == String::npos || source.find_first_not_of("0123456789+-.eE", start) != String::npos) {
        return false;
    }
    char* end = nullptr;
    const float value = ::strtof_l(source.c_str(), &end, c_locale);
    if (end != source.c_str() + source.size() || std::abs(value) > std::numeric_limits<float>::max()) {
        return false;
    }
    result = value;
    return true;
}

#endif

/** Parses all of `source` by a function of the strtol family. Throws std::invalid_argument. */
template <class T>
T convert(T (*strto)(const char*, char**, int), const String& source, unsigned int line)
{
    char* end = nullptr;
    const T value = strto(source.c_str(), &end, 0);
    if (end != nullptr && *end != '\0') {
        throw_bad_format(line);
    }
    return value;
}

/** Converts `value` to the type of `result` and assigns it. Throws std::out_of_range. */
template <class T, class Wide>
T narrow(T& result, Wide value, unsigned int line)
{
    if (value < Wide{std::numeric_limits<T>::min()} || value > Wide{std::numeric_limits<T>::max()}) {
        throw_bad_range(line);
    }
    return result = static_cast<T>(value);
}

/** Parses a type that is narrower than that of the C function. */
template <class T, class Wide>
T parseNarrow(T& result, Wide (*strto)(const char*, char**, int), const String& source, unsigned int line)
{
    if (source.empty()) {
        return result = 0;
    }
    T value;
    if (convertPlainInteger(value, source)) {
        return result = value;
    }
    return narrow(result, convert(strto, source, line), line);
}

/** Returns the value of a type that the C function itself returns, before any check for overflow. */
template <class T>
T convertWide(T (*strto)(const char*, char**, int), const String& source, unsigned int line)
{
    if (source.empty()) {
        return 0;
    }
    T value;
    return convertPlainInteger(value, source) ? value : convert(strto, source, line);
}

/** Parses a type that the C function itself returns: overflow shows in an extreme value and in `errno`. */
template <class T>
T& parseWide(T& result, T (*strto)(const char*, char**, int), const String& source, unsigned int line)
{
    const T value = convertWide(strto, source, line);
    typedef std::numeric_limits<T> Limits;
    if ((value == Limits::min() || value == Limits::max()) && errno == ERANGE) {
        throw_bad_range(line);
    }
    return result = value;
}

}

signed char NumberOps::parse(signed char& result, const String& source)
{
    return parseNarrow(result, std::strtol, source, __LINE__);
}

unsigned char NumberOps::parse(unsigned char& result, const String& source)
{
    return parseNarrow(result, std::strtoul, source, __LINE__);
}

short NumberOps::parse(short& result, const String& source)
{
    return parseNarrow(result, std::strtol, source, __LINE__);
}

unsigned short NumberOps::parse(unsigned short& result, const String& source)
{
    return parseNarrow(result, std::strtoul, source, __LINE__);
}

int NumberOps::parse(int& result, const String& source)
{
    return parseNarrow(result, std::strtol, source, __LINE__);
}

unsigned int NumberOps::parse(unsigned int& result, const String& source)
{
    return parseNarrow(result, std::strtoul, source, __LINE__);
}

long& NumberOps::parse(long& result, const String& source)
{
    return parseWide(result, std::strtol, source, __LINE__);
}

unsigned long& NumberOps::parse(unsigned long& result, const String& source)
{
    return result = convertWide(std::strtoul, source, __LINE__);
}

NumberOps::SInt64_t& NumberOps::parse(SInt64_t& result, const String& source)
{
    return parseWide(result, std::strtoll, source, __LINE__);
}

NumberOps::UInt64_t& NumberOps::parse(UInt64_t& result, const String& source)
{
    // Compatibility: the highest signed value, although overflow yields the highest unsigned one. Callers
    // rely on the latter being accepted.
    constexpr UInt64_t SUSPECT = 0x7FFFFFFFFFFFFFFF;
    const UInt64_t value = convertWide(std::strtoull, source, __LINE__);
    if (value == SUSPECT && errno == ERANGE) {
        throw_bad_range(__LINE__);
    }
    return result = value;
}

float& NumberOps::parse(float& result, const String& source)
{
    if (source.empty()) {
        return result = 0;
    }
    // The facets of any other locale may differ.
    float plain;
    if (convertPlainReal(plain, source) && std::locale() == std::locale::classic()) {
        return result = plain;
    }
#ifdef _LIBCPP_VERSION
    const bool isConverted = std::locale() == std::locale::classic() ? convertAsClassicStream(result, source)
                                                                     : convertString(result, source);
#else
    const bool isConverted = convertString(result, source);
#endif
    if (!isConverted) {
        throw_bad_format(__LINE__);
    }
    return result;
}

double& NumberOps::parse(double& result, const String& source)
{
    if (source.empty()) {
        return result = 0;
    }
    double plain;
    if (convertPlainReal(plain, source) && isDecimalPointPlain()) {
        return result = plain;
    }
    char* end = nullptr;
    const double value = std::strtod(source.c_str(), &end);
    if (end != nullptr && *end != '\0') {
        throw_bad_format(__LINE__);
    }
    typedef std::numeric_limits<double> Limits;
    if ((value > Limits::max() || value < Limits::lowest()) && errno == ERANGE) {
        throw_bad_range(__LINE__);
    }
    return result = value;
}

template <class T>
bool NumberOps::convertString(T& result, const String& source)
{
    std::istringstream stream(source);
    // Running out of memory must not count as a bad format.
    stream.exceptions(std::ios_base::badbit);
    T value;
    stream >> std::dec >> value;
    if (!stream || stream.rdbuf()->in_avail() > 0) {
        return false;
    }
    result = value;
    return true;
}

template bool NumberOps::convertString(float& result, const String& source);

}
