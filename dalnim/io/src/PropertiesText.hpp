#ifndef DALNIM_IO_SRC_PROPERTIESTEXT_HPP
#define DALNIM_IO_SRC_PROPERTIESTEXT_HPP

#include <cctype>

/** @file The characters and escapes of the properties format, for reading and writing. */

namespace com::kor::dal::nim::io {

struct EscapePair
{
    char letter;
    char byte;
};

/** The letters that denote control bytes after a backslash. */
inline constexpr EscapePair C_ESCAPE_XLAT[] = {{'a', '\a'}, {'b', '\b'}, {'f', '\f'}, {'n', '\n'},
                                               {'r', '\r'}, {'t', '\t'}, {'v', '\v'}};

inline constexpr char HEX_CHAR_SET[] = "0123456789ABCDEF";

/** Returns the byte that a letter denotes, or the letter itself. */
inline char char_to_escaped_char(char letter) noexcept
{
    for (const EscapePair& pair : C_ESCAPE_XLAT) {
        if (pair.letter == letter) {
            return pair.byte;
        }
    }
    return letter;
}

/** Returns the letter that denotes a byte, or the byte itself. */
inline char escaped_char_to_char(char byte) noexcept
{
    for (const EscapePair& pair : C_ESCAPE_XLAT) {
        if (pair.byte == byte) {
            return pair.letter;
        }
    }
    return byte;
}

inline bool char_is_octal(char c) noexcept
{
    return c >= '0' && c <= '7';
}

inline bool char_is_hex(char c) noexcept
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

/** Returns the value of a hexadecimal digit; 0 for any other character. */
inline unsigned int hex_char_to_nibble(char c) noexcept
{
    if (c >= '1' && c <= '9') {
        return static_cast<unsigned int>(c - '0');
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned int>(c - 'A') + 10;
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned int>(c - 'a') + 10;
    }
    return 0;
}

/** Returns isspace() of a byte. Does not call it for the bytes that are printable in every locale. */
inline bool char_is_space(char c) noexcept
{
    const auto byte = static_cast<unsigned char>(c);
    return (byte <= 0x20 || byte >= 0x7f) && std::isspace(byte) != 0;
}

}

#endif
