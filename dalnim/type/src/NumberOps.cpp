#include <dalnim/dalbase.hpp>

#include <dalnim/type/NumberOps.hpp>

#include <dalnim/sys/StackTrack.hpp>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <stdexcept>

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

template <class T>
T parseSigned(T& result, const String& source, unsigned int line)
{
    return source.empty() ? result = 0 : narrow(result, convert(std::strtol, source, line), line);
}

template <class T>
T parseUnsigned(T& result, const String& source, unsigned int line)
{
    return source.empty() ? result = 0 : narrow(result, convert(std::strtoul, source, line), line);
}

/** Parses a type that the C function itself returns: overflow shows in an extreme value and in `errno`. */
template <class T>
T& parseWide(T& result, T (*strto)(const char*, char**, int), const String& source, unsigned int line)
{
    const T value = source.empty() ? 0 : convert(strto, source, line);
    typedef std::numeric_limits<T> Limits;
    if ((value == Limits::min() || value == Limits::max()) && errno == ERANGE) {
        throw_bad_range(line);
    }
    return result = value;
}

}

signed char NumberOps::parse(signed char& result, const String& source)
{
    return parseSigned(result, source, __LINE__);
}

unsigned char NumberOps::parse(unsigned char& result, const String& source)
{
    return parseUnsigned(result, source, __LINE__);
}

short NumberOps::parse(short& result, const String& source)
{
    return parseSigned(result, source, __LINE__);
}

unsigned short NumberOps::parse(unsigned short& result, const String& source)
{
    return parseUnsigned(result, source, __LINE__);
}

int NumberOps::parse(int& result, const String& source)
{
    return parseSigned(result, source, __LINE__);
}

unsigned int NumberOps::parse(unsigned int& result, const String& source)
{
    return parseUnsigned(result, source, __LINE__);
}

long& NumberOps::parse(long& result, const String& source)
{
    return parseWide(result, std::strtol, source, __LINE__);
}

unsigned long& NumberOps::parse(unsigned long& result, const String& source)
{
    return result = source.empty() ? 0 : convert(std::strtoul, source, __LINE__);
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
    const UInt64_t value = source.empty() ? 0 : convert(std::strtoull, source, __LINE__);
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
    if (!convertString(result, source)) {
        throw_bad_format(__LINE__);
    }
    return result;
}

double& NumberOps::parse(double& result, const String& source)
{
    if (source.empty()) {
        return result = 0;
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
