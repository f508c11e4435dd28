#ifndef DALNIM_XML_SRC_TEXTSCAN_HPP
#define DALNIM_XML_SRC_TEXTSCAN_HPP

#include "ByteVector.hpp"
#include "CharTypes.hpp"

#include <cstring>

/**
 * @file
 * The inner loops of the parser, which search 16 bytes at a time. None reads past `end`; only the functions
 * that skip read the NUL at `end`.
 */

namespace com::kor::dal::nim::xml {

/** Returns the position of the first `byte`, or `end`. */
inline char* findByte(char* p, char* end, char byte) noexcept
{
    auto* const found = static_cast<char*>(std::memchr(p, byte, static_cast<std::size_t>(end - p)));
    return found == nullptr ? end : found;
}

/** Returns the position of the first byte that is `first` or `second`, or `end`. */
inline char* findEither(char* p, char* end, char first, char second) noexcept
{
    for (; end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const ByteVector bytes = load(p);
        const MatchMask found = matchMask(equal(bytes, first) | equal(bytes, second));
        if (found != 0) {
            return p + firstByte(found);
        }
    }
    while (p != end && *p != first && *p != second) {
        ++p;
    }
    return p;
}

/**
 * Returns the position of the first byte that is `quote` (a constant, since spreading a byte that was just
 * read over a vector would delay each search), "&", a line feed or a carriage return, or `end`.
 */
template <char quote>
[[gnu::always_inline]] inline char* findInValue(char* p, char* end) noexcept
{
    for (; end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const ByteVector bytes = load(p);
        const ByteVector symbols = equal(bytes, quote) | equal(bytes, '&');
        const ByteVector breaks = equal(bytes, '\n') | equal(bytes, '\r');
        const MatchMask found = matchMask(symbols | breaks);
        if (found != 0) {
            return p + firstByte(found);
        }
    }
    while (p != end && *p != quote && *p != '&' && *p != '\n' && *p != '\r') {
        ++p;
    }
    return p;
}

/** Returns the position of the first byte that is not white space. */
inline char* skipSpace(char* p, const char* end) noexcept
{
    // Runs are usually short. A predicted branch lets the processor continue speculatively, whereas a
    // position computed from a mask must be waited for.
    constexpr int FEW = 8;
#pragma GCC unroll 8
    for (int i = 0; i < FEW; ++i) {
        if (!isA(CHAR_SPACE, p[i])) {
            return p + i;
        }
    }
    p += FEW;
    for (; isA(CHAR_SPACE, *p) && end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const ByteVector bytes = load(p);
        const MatchMask spaces = matchMask(equal(bytes, ' ') | inRange(bytes, '\t', 5));
        if (spaces != ALL_BYTES) {
            p += firstByte(~spaces);
            break;
        }
    }
    return skip(CHAR_SPACE, p);
}

/** Returns the position past the first occurrence of `text` (three characters), or null. */
inline char* findPast(char* p, char* end, const char (&text)[4]) noexcept
{
    for (; end - p >= SCAN_WIDTH + 2; p += SCAN_WIDTH) {
        const ByteVector ends = equal(load(p + 1), text[1]) & equal(load(p + 2), text[2]);
        const MatchMask found = matchMask(equal(load(p), text[0]) & ends);
        if (found != 0) {
            return p + firstByte(found) + 3;
        }
    }
    for (; end - p >= 3; ++p) {
        if (std::memcmp(p, text, 3) == 0) {
            return p + 3;
        }
    }
    return nullptr;
}

/** Returns true if the bytes from `p` to `end` start with `prefix`. */
template <std::size_t N>
bool startsWith(const char* p, const char* end, const char (&prefix)[N]) noexcept
{
    constexpr std::size_t length = N - 1;
    return static_cast<std::size_t>(end - p) >= length && std::memcmp(p, prefix, length) == 0;
}

}

#endif
