#ifndef DALNIM_TYPE_NUMBEROPS_HPP
#define DALNIM_TYPE_NUMBEROPS_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * Numbers from text.
 *
 * The whole text must be one number: white space and a sign may stand before it, and nothing behind
 * it. Integers are decimal, hexadecimal behind "0x", or octal behind "0". The empty text is 0. A text
 * ends at its first zero byte, but for `float`.
 *
 * All operations set `result` and return it or a reference to it. Where they throw, it is unchanged:
 *
 * @throws std::invalid_argument "Invalid string representation of numeric type."
 * @throws std::out_of_range     "String representation exceeds capacity of numeric type."
 *
 * They may be called from any thread. Integers and `double` follow the locale of the process, `float`
 * follows the global one of streams.
 */
class DALNIM_API NumberOps
{
public:
    static constexpr const char CLASS_NAME[] = "NumberOps";

    /** A signed number of 64 bits. */
    typedef long long SInt64_t;
    /** An unsigned number of 64 bits. */
    typedef unsigned long long UInt64_t;

    /**
     * Out of range is what the type cannot hold. For the unsigned ones a negative number wraps around
     * in 64 bits first: "-1" is out of range, "-18446744073709551615" is 1.
     */
    static signed char parse(signed char& result, const String& source);
    /** @name The same for further types */
    /** @{ */
    /** As the form for `signed char`. */
    static unsigned char parse(unsigned char& result, const String& source);
    static short parse(short& result, const String& source);
    static unsigned short parse(unsigned short& result, const String& source);
    static int parse(int& result, const String& source);
    static unsigned int parse(unsigned int& result, const String& source);
    /** @} */

    /**
     * Out of range is the lowest or highest value if `errno` is ERANGE, which is not cleared before:
     * a caller who needs those two values themselves clears it.
     */
    static long& parse(long& result, const String& source);
    /** The same. */
    static SInt64_t& parse(SInt64_t& result, const String& source);

    /** Never out of range: beyond it is the highest value, and a negative number wraps around. */
    static unsigned long& parse(unsigned long& result, const String& source);

    /** The same, but for 0x7FFFFFFFFFFFFFFF, which is out of range if `errno` is ERANGE. */
    static UInt64_t& parse(UInt64_t& result, const String& source);

    /** As by operator>>: decimal alone, and a value beyond the range is an invalid argument. */
    static float& parse(float& result, const String& source);

    /**
     * As by strtod(), also hexadecimal, infinite, or none. An infinite value is out of range if
     * `errno` is ERANGE, which is not cleared before; one too small is as close as the type comes.
     */
    static double& parse(double& result, const String& source);

    NumberOps() = delete;

private:
    /** Whether all of `source` is a number; only then is `result` set. */
    template <class T>
    static bool convertString(T& result, const String& source);
};

}

#endif
