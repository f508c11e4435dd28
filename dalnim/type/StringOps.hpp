#ifndef DALNIM_TYPE_STRINGOPS_HPP
#define DALNIM_TYPE_STRINGOPS_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_String.hpp>

#include <cstddef>

namespace com::kor::dal::nim::type {

/**
 * Operations on strings and on zero-terminated character arrays. They work on bytes; characters of
 * several bytes have no meaning here. Case and white space are those of the process's locale.
 *
 * All operations may be called from any thread. They throw nothing but std::bad_alloc, and where
 * they do, their argument is unchanged.
 */
class DALNIM_API StringOps
{
public:
    static constexpr const char CLASS_NAME[] = "StringOps";

    /**
     * Compares without regard to case: the first difference of lowered bytes decides, then the
     * length. Only the sign of the result means something. The locale is the one of the first call.
     * A null pointer is below every text and equal to another one.
     */
    static int compareIgnoreCase(const String& l, const String& r);
    /** The same. */
    static int compareIgnoreCase(const char* l, const char* r);

    /** Replaces every occurrence in place, and returns `target`, which may be a null pointer. */
    static String& replace(String& target, char search_char, char replace_char);
    /** The same in an array, up to its terminating zero. */
    static char* replace(char* target, char search_char, char replace_char);
    template <std::size_t N>
    static char* replace(const char (&literal)[N], char search_char, char replace_char) = delete;

    /**
     * Replaces every occurrence from left to right, and returns `target`. Text that was put in, or
     * that moved together, is not searched again. An empty `search_str` occurs nowhere.
     */
    static String& replace(String& target, const String& search_str, const String& replace_str);

    /** Converts in place up to the first zero byte, where `target` ends thereafter; returns it. */
    static String& toLower(String& target);
    /** The same, to upper case. */
    static String& toUpper(String& target);

    /** A copy without white space at its beginning and its end. */
    static String trimWS(const String& source);

    /**
     * Ends `target` behind its last character that is no white space, and returns a pointer to the
     * first one: not the one to free the array by. A null pointer is returned as it is.
     */
    static char* trimWS(char* target);

    // Compilers take a literal for the array that it must not be written to as.
    /** A copy, as of a String. */
    template <std::size_t N>
    static String trimWS(const char (&literal)[N])
    {
        return trimWS(String(literal));
    }

    /** Both end at the first zero byte. */
    static RX_String convNIMStrToRXString(const String& nimStr);
    /** The other way round. */
    static String convRXStringToNIMStr(const RX_String& rxStr);

    StringOps() = delete;

private:
    static int _compare(const char* l, std::size_t l_length, const char* r, std::size_t r_length);
    static const unsigned char* _get_lowercase_char_xlat_table() noexcept;
};

}

#endif
