#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/EscapedText.hpp>

#include <dalnim/log/src/HexDigits.hpp>
#include <dalnim/log/src/LineBuffer.hpp>

#include <algorithm>

namespace com::kor::dal::nim::log {

namespace {

bool isEscaped(char c) noexcept
{
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7f || c == '\\';
}

/** Returns the letter that follows the backslash in C, or 0. */
char letterOf(char c) noexcept
{
    switch (c) {
    case '\a':
        return 'a';
    case '\b':
        return 'b';
    case '\f':
        return 'f';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    case '\v':
        return 'v';
    case '\\':
        return '\\';
    default:
        return 0;
    }
}

}

bool needsEscape(std::string_view text) noexcept
{
    return std::any_of(text.begin(), text.end(), isEscaped);
}

void appendEscaped(LineBuffer& line, std::string_view text)
{
    while (!text.empty()) {
        const auto* const escaped = std::find_if(text.begin(), text.end(), isEscaped);
        const auto plain = static_cast<std::size_t>(escaped - text.begin());
        line.append(text.substr(0, plain));
        if (escaped == text.end()) {
            return;
        }
        line.append('\\');
        if (const char letter = letterOf(*escaped); letter != 0) {
            line.append(letter);
        } else {
            const auto byte = static_cast<unsigned char>(*escaped);
            line.append('x').append(HEX_DIGITS[byte >> 4]).append(HEX_DIGITS[byte & 0xf]);
        }
        text.remove_prefix(plain + 1);
    }
}

}
