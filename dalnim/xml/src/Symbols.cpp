#include <dalnim/dalbase.hpp>

#include "Symbols.hpp"

#include "TextScan.hpp"

#include <cstring>

namespace com::kor::dal::nim::xml {

namespace {

/** Returns the position past `rest` if the string at `p` starts with it, otherwise null. */
template <std::size_t N>
char* readRest(char* p, const char (&rest)[N]) noexcept
{
    // Byte by byte: a mismatch may be the terminating NUL, past which nothing may be read.
    for (std::size_t i = 0; i < N - 1; ++i) {
        if (p[i] != rest[i]) {
            return nullptr;
        }
    }
    return p + (N - 1);
}

char* readNamed(char* p, char& value) noexcept
{
    switch (*p) {
    case 'l':
        value = '<';
        return readRest(p, "lt;");
    case 'g':
        value = '>';
        return readRest(p, "gt;");
    case 'q':
        value = '"';
        return readRest(p, "quot;");
    case 'a':
        value = p[1] == 'm' ? '&' : '\'';
        return p[1] == 'm' ? readRest(p, "amp;") : readRest(p, "apos;");
    default:
        return nullptr;
    }
}

/** Reads a character reference. Compatibility: the number is taken modulo 256, and no digits mean 0. */
char* readNumber(char* p, char& value) noexcept
{
    unsigned number = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        number = (number * 10 + static_cast<unsigned>(*p - '0')) % 256;
    }
    value = static_cast<char>(number);
    return readRest(p, ";");
}

}

char* expandSpecialSymbols(char* p, char* end) noexcept
{
    char* out = p;
    char* nul = nullptr;
    while (p != end) {
        char value = '\0';
        p = p[1] == '#' ? readNumber(p + 2, value) : readNamed(p + 1, value);
        if (p == nullptr) {
            return nullptr;
        }
        if (value == '\0' && nul == nullptr) {
            nul = out;
        }
        *out++ = value;
        char* const next = findByte(p, end, '&');
        const auto between = static_cast<std::size_t>(next - p);
        std::memmove(out, p, between);
        out += between;
        p = next;
    }
    *out = '\0';
    return nul != nullptr ? nul : out;
}

}
