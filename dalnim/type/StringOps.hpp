#ifndef DALNIM_TYPE_STRINGOPS_HPP
#define DALNIM_TYPE_STRINGOPS_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_String.hpp>

#include <cstddef>

namespace com::kor::dal::nim::type {

/**
 * Operations on strings and on zero-terminated character arrays. They process bytes; multibyte characters are
 * not recognised. Case and white space are those of the process's locale.
 *
 * They throw nothing but std::bad_alloc, and leave their argument unchanged then.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_API StringOps
{
public:
    static constexpr const char CLASS_NAME[] = "StringOps";

    /**
     * Compares regardless of case: by the first lowercase bytes that differ, then by length. The locale is
     * that of the first call. A null pointer is less than every string and equal to another null pointer.
     * @return a value below, equal to or above 0
     */
    static int compareIgnoreCase(const String& l, const String& r);
    /** The same. */
    static int compareIgnoreCase(const char* l, const char* r);

    /** Replaces every occurrence in place and returns `target`. */
    static String& replace(String& target, char search_char, char replace_char);
    /** The same in an array, up to its terminating zero. `target` may be null. */
    static char* replace(char* target, char search_char, char replace_char);
    template <std::size_t N>
    static char* replace(const char (&literal)[N], char search_char, char replace_char) = delete;

    /**
     * Replaces every occurrence from left to right and returns `target`. Replacements, and occurrences that
     * they complete, are not searched again. An empty `search_str` never occurs.
     */
    static String& replace(String& target, const String& search_str, const String& replace_str);

    /** Converts to lower case in place and returns `target`, truncated at its first zero byte. */
    static String& toLower(String& target);
    /** Converts to upper case in the same way. */
    static String& toUpper(String& target);

    /** Returns a copy without leading and trailing white space. */
    static String trimWS(const String& source);

    /**
     * Trims an array in place: writes a zero after its last character that is not white space.
     * @return a pointer to the first such character, by which the array must not be freed; null for null
     */
    static char* trimWS(char* target);

    // Without this overload, some compilers would pass a literal to the overload that writes to its argument.
    /** Returns a trimmed copy of a literal. */
    template <std::size_t N>
    static String trimWS(const char (&literal)[N])
    {
        return trimWS(String(literal));
    }

    /** Converts a string, up to its first zero byte. */
    static RX_String convNIMStrToRXString(const String& nimStr);
    /** Converts a string, up to its first zero byte. */
    static String convRXStringToNIMStr(const RX_String& rxStr);

    StringOps() = delete;

private:
    static int _compare(const char* l, std::size_t l_length, const char* r, std::size_t r_length);
    static const unsigned char* _get_lowercase_char_xlat_table() noexcept;
};

}

#endif
