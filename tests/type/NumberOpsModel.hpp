#ifndef TESTS_TYPE_NUMBEROPSMODEL_HPP
#define TESTS_TYPE_NUMBEROPSMODEL_HPP

#include <cstddef>
#include <cstring>
#include <string>

/** A model of integers and decimal numbers in text, in its simplest form: one character after another. */
namespace numbermodel {

__extension__ typedef __int128 Wide;

enum Outcome { NUMBER, BAD_FORMAT, BAD_RANGE };

struct Integer
{
    bool malformed = false;
    bool negative = false;
    /** The value after the sign, limited to 2^100. */
    Wide magnitude = 0;

    Wide value() const
    {
        return negative ? -magnitude : magnitude;
    }
};

inline bool isSpace(char c)
{
    return c != 0 && std::strchr(" \t\n\v\f\r", c) != nullptr;
}

inline int digitValue(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'Z') {
        return c - 'A' + 10;
    }
    return 99;
}

/** Parses an integer. `text` must not be empty. */
inline Integer integer(const std::string& text)
{
    const char* pos = text.c_str();
    Integer result;
    if (*pos == 0) {
        return result;
    }
    while (isSpace(*pos)) {
        ++pos;
    }
    if (*pos == '+' || *pos == '-') {
        result.negative = *pos == '-';
        ++pos;
    }
    int base = 10;
    if (pos[0] == '0' && (pos[1] == 'x' || pos[1] == 'X')) {
        base = 16;
        pos += 2;
    } else if (pos[0] == '0') {
        base = 8;
    }
    result.malformed = digitValue(*pos) >= base;
    for (; digitValue(*pos) < base; ++pos) {
        if (result.magnitude < (Wide{1} << 95)) {
            result.magnitude = result.magnitude * base + digitValue(*pos);
        }
    }
    result.malformed = result.malformed || *pos != 0;
    return result;
}

inline bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/** Returns true if all of `text`, including zero bytes, is white space and a decimal number. */
inline bool isDecimal(const std::string& text)
{
    const char* pos = text.c_str();
    while (isSpace(*pos)) {
        ++pos;
    }
    if (*pos == '+' || *pos == '-') {
        ++pos;
    }
    std::size_t digits = 0;
    for (; isDigit(*pos); ++pos) {
        ++digits;
    }
    if (*pos == '.') {
        for (++pos; isDigit(*pos); ++pos) {
            ++digits;
        }
    }
    if (digits == 0) {
        return false;
    }
    if (*pos == 'e' || *pos == 'E') {
        ++pos;
        if (*pos == '+' || *pos == '-') {
            ++pos;
        }
        if (!isDigit(*pos)) {
            return false;
        }
        while (isDigit(*pos)) {
            ++pos;
        }
    }
    return pos == text.c_str() + text.size();
}

}

#endif
