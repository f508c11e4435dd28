#ifndef TESTS_TYPE_NUMBEROPSCHECK_HPP
#define TESTS_TYPE_NUMBEROPSCHECK_HPP

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <dalnim/type/NumberOps.hpp>
#include <tests/type/NumberOpsModel.hpp>

namespace numbermodel {

template <class T>
struct Expected
{
    Outcome outcome = NUMBER;
    T value = 0;
};

/** Limits a value to 64 bits, like the conversions of the system. */
inline Wide clippedSigned(const Integer& integer)
{
    typedef std::numeric_limits<long long> Limits;
    const Wide value = integer.value();
    return value < Limits::min() ? Limits::min() : value > Limits::max() ? Limits::max() : value;
}

inline Wide wrappedUnsigned(const Integer& integer)
{
    const Wide modulus = Wide{1} << 64;
    if (integer.magnitude >= modulus) {
        return modulus - 1;
    }
    return integer.negative && integer.magnitude != 0 ? modulus - integer.magnitude : integer.magnitude;
}

template <class T>
Expected<T> expectedInteger(const std::string& text, int stale)
{
    constexpr bool wide = sizeof(T) == 8;
    typedef std::numeric_limits<T> Limits;
    const Integer number = text.empty() ? Integer() : integer(text);
    if (number.malformed) {
        return {BAD_FORMAT, 0};
    }
    const Wide value = std::is_signed_v<T> ? clippedSigned(number) : wrappedUnsigned(number);
    bool outside = value < Wide{Limits::min()} || value > Wide{Limits::max()};
    if (wide && std::is_signed_v<T>) {
        const bool clipped = value != number.value();
        const bool extreme = value == Limits::min() || value == Limits::max();
        outside = extreme && (clipped || stale == ERANGE);
    } else if (std::is_same_v<T, unsigned long long>) {
        outside = value == 0x7FFFFFFFFFFFFFFF && stale == ERANGE;
    }
    if (outside) {
        return {BAD_RANGE, 0};
    }
    return {NUMBER, static_cast<T>(value)};
}

inline Expected<float> expectedFloat(const std::string& text)
{
    if (text.empty()) {
        return {NUMBER, 0};
    }
    const float value = std::strtof(text.c_str(), nullptr);
    if (!isDecimal(text) || std::isinf(value)) {
        return {BAD_FORMAT, 0};
    }
    return {NUMBER, value};
}

inline Expected<double> expectedDouble(const std::string& text, int stale)
{
    if (text.empty()) {
        return {NUMBER, 0};
    }
    char* end = nullptr;
    errno = stale;
    const double value = std::strtod(text.c_str(), &end);
    const int number = errno;
    if (*end != 0) {
        return {isDecimal(text.c_str()) ? NUMBER : BAD_FORMAT, value};
    }
    return {std::isinf(value) && number == ERANGE ? BAD_RANGE : NUMBER, value};
}

/** Returns the difference between parse() and the model for `text`, or an empty string. */
template <class T>
std::string disagreementOn(const Expected<T>& expected, const std::string& text, int stale)
{
    using com::kor::dal::nim::type::NumberOps;
    const T before = 42;
    T result = before;
    T returned = 0;
    Outcome outcome = NUMBER;
    try {
        errno = stale;
        returned = NumberOps::parse(result, text);
    } catch (const std::invalid_argument& error) {
        outcome = BAD_FORMAT;
        if (error.what() != std::string("Invalid string representation of numeric type.")) {
            return error.what();
        }
    } catch (const std::out_of_range& error) {
        outcome = BAD_RANGE;
        if (error.what() != std::string("String representation exceeds capacity of numeric type.")) {
            return error.what();
        }
    }
    const auto same = [](T a, T b) { return a == b || (a != a && b != b); };
    if (outcome != expected.outcome) {
        return "outcome " + std::to_string(outcome) + " and not " + std::to_string(expected.outcome);
    }
    if (outcome != NUMBER) {
        return same(result, before) ? "" : "the result was changed";
    }
    if (!same(result, expected.value) || !same(returned, expected.value)) {
        return std::to_string(result) + " returned as " + std::to_string(returned) + " and not "
               + std::to_string(expected.value);
    }
    return "";
}

/** The same for all types; the result begins with the name of the type. */
inline std::string disagreement(const std::string& text, int stale)
{
    std::string found;
    const auto check = [&](const char* type, const auto& expected) {
        const std::string what = disagreementOn(expected, text, stale);
        if (!what.empty()) {
            found += std::string(type) + ": " + what + "\n";
        }
    };
    check("signed char", expectedInteger<signed char>(text, stale));
    check("unsigned char", expectedInteger<unsigned char>(text, stale));
    check("short", expectedInteger<short>(text, stale));
    check("unsigned short", expectedInteger<unsigned short>(text, stale));
    check("int", expectedInteger<int>(text, stale));
    check("unsigned int", expectedInteger<unsigned int>(text, stale));
    check("long", expectedInteger<long>(text, stale));
    check("unsigned long", expectedInteger<unsigned long>(text, stale));
    check("long long", expectedInteger<long long>(text, stale));
    check("unsigned long long", expectedInteger<unsigned long long>(text, stale));
    check("float", expectedFloat(text));
    check("double", expectedDouble(text, stale));
    return found;
}

}

#endif
