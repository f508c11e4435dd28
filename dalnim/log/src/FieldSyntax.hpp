#ifndef DALNIM_LOG_SRC_FIELDSYNTAX_HPP
#define DALNIM_LOG_SRC_FIELDSYNTAX_HPP

#include <algorithm>
#include <string_view>

namespace com::kor::dal::nim::log {

/** The characters of fields. The same in every locale. */
class FieldSyntax
{
public:
    FieldSyntax() = delete;

    static bool isWhiteSpace(char c) noexcept
    {
        return c == ' ' || (c >= '\t' && c <= '\r');
    }
    static bool isControl(char c) noexcept
    {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    }
    /** Returns true if a name may begin with `c`. */
    static bool isNameStart(char c) noexcept
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    }
    /** Returns true if a name may contain `c` after its beginning. */
    static bool isNamePart(char c) noexcept
    {
        return isNameStart(c) || (c >= '0' && c <= '9') || c == '.' || c == '-';
    }
    /** Returns true if a value that contains `c` is quoted. */
    static bool isQuoted(char c) noexcept
    {
        return c == ' ' || c == '=' || c == '"' || isControl(c);
    }
    static bool needsQuotes(std::string_view value) noexcept
    {
        return value.empty() || std::any_of(value.begin(), value.end(), isQuoted);
    }
    /** Returns true if a quoted value contains `c` only in an escape sequence. */
    static bool isEscaped(char c) noexcept
    {
        return c == '"' || c == '\\' || isControl(c);
    }
};

}

#endif
