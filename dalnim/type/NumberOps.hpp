#ifndef DALNIM_TYPE_NUMBEROPS_HPP
#define DALNIM_TYPE_NUMBEROPS_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * Parses numbers.
 *
 * The whole string must be one number. White space and a sign may precede it; nothing may follow it. Integers
 * are decimal, hexadecimal after "0x", or octal after "0". The empty string is 0. A string ends at its first
 * zero byte, except for `float`.
 *
 * All operations set `result` and return it or a reference to it. If they throw, it is unchanged:
 *
 * @throws std::invalid_argument "Invalid string representation of numeric type."
 * @throws std::out_of_range     "String representation exceeds capacity of numeric type."
 *
 * Thread safety: any thread may call any operation. Integers and `double` follow the locale of the process,
 * `float` the global locale of streams.
 */
class DALNIM_API NumberOps
{
public:
    static constexpr const char CLASS_NAME[] = "NumberOps";

    /** A signed 64-bit integer. */
    typedef long long SInt64_t;
    /** An unsigned 64-bit integer. */
    typedef unsigned long long UInt64_t;

    /**
     * Parses an integer. A value that the type cannot hold is out of range. For unsigned types, a negative
     * number first wraps around in 64 bits: "-1" is out of range, "-18446744073709551615" is 1.
     */
    static signed char parse(signed char& result, const String& source);
    /** @name Further types */
    /** @{ */
    /** Like the overload for `signed char`. */
    static unsigned char parse(unsigned char& result, const String& source);
    static short parse(short& result, const String& source);
    static unsigned short parse(unsigned short& result, const String& source);
    static int parse(int& result, const String& source);
    static unsigned int parse(unsigned int& result, const String& source);
    /** @} */

    /**
     * Parses an integer. The lowest and the highest value are out of range if `errno` is ERANGE, which is not
     * cleared before: a caller that needs these two values must clear it.
     */
    static long& parse(long& result, const String& source);
    /** The same. */
    static SInt64_t& parse(SInt64_t& result, const String& source);

    /** Parses an integer. A value that is too large becomes the highest value; a negative number wraps
     * around. */
    static unsigned long& parse(unsigned long& result, const String& source);

    /** The same, except that 0x7FFFFFFFFFFFFFFF is out of range if `errno` is ERANGE. */
    static UInt64_t& parse(UInt64_t& result, const String& source);

    /** Parses like operator>>: decimal only. A value that is out of range throws std::invalid_argument. */
    static float& parse(float& result, const String& source);

    /**
     * Parses like strtod(): also hexadecimal numbers, infinity and NaN. An infinite value is out of range if
     * `errno` is ERANGE, which is not cleared before. A value that is too small becomes the closest one.
     */
    static double& parse(double& result, const String& source);

    NumberOps() = delete;

private:
    /** Sets `result` and returns true if all of `source` is a number. */
    template <class T>
    static bool convertString(T& result, const String& source);
};

}

#endif
