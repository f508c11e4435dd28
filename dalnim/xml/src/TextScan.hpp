#ifndef DALNIM_XML_SRC_TEXTSCAN_HPP
#define DALNIM_XML_SRC_TEXTSCAN_HPP

#include "CharTypes.hpp"

#include <cstring>
#include <emmintrin.h>

/**
 * @file
 * The inner loops of the parser. They search 16 bytes at a time, with SSE2, which every x86-64 processor
 * has. None reads past `end`; only the functions that skip read the NUL at `end`.
 */

namespace com::kor::dal::nim::xml {

constexpr std::ptrdiff_t SCAN_WIDTH = sizeof(__m128i);
constexpr unsigned ALL_BYTES = 0xFFFF;

inline __m128i load(const char* p) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

/** Returns a mask with one bit for each byte, set if the comparison matched. */
inline unsigned matchMask(__m128i comparison) noexcept
{
    return static_cast<unsigned>(_mm_movemask_epi8(comparison));
}

inline __m128i equal(__m128i bytes, char byte) noexcept
{
    return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte));
}

/** Compares each byte with the range of `count` values that starts at `first`. */
inline __m128i inRange(__m128i bytes, char first, int count) noexcept
{
    // Shifts the range to the smallest signed values, so that one signed comparison suffices.
    const __m128i moved = _mm_add_epi8(bytes, _mm_set1_epi8(static_cast<char>(-128 - first)));
    return _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(-128 + count)));
}

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
        const __m128i bytes = load(p);
        const unsigned found = matchMask(_mm_or_si128(equal(bytes, first), equal(bytes, second)));
        if (found != 0) {
            return p + __builtin_ctz(found);
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
        const __m128i bytes = load(p);
        const __m128i symbols = _mm_or_si128(equal(bytes, quote), equal(bytes, '&'));
        const __m128i breaks = _mm_or_si128(equal(bytes, '\n'), equal(bytes, '\r'));
        const unsigned found = matchMask(_mm_or_si128(symbols, breaks));
        if (found != 0) {
            return p + __builtin_ctz(found);
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
        const __m128i bytes = load(p);
        const unsigned spaces = matchMask(_mm_or_si128(equal(bytes, ' '), inRange(bytes, '\t', 5)));
        if (spaces != ALL_BYTES) {
            p += __builtin_ctz(~spaces);
            break;
        }
    }
    return skip(CHAR_SPACE, p);
}

/** Returns the position past the first occurrence of `text` (three characters), or null. */
inline char* findPast(char* p, char* end, const char (&text)[4]) noexcept
{
    for (; end - p >= SCAN_WIDTH + 2; p += SCAN_WIDTH) {
        const __m128i ends = _mm_and_si128(equal(load(p + 1), text[1]), equal(load(p + 2), text[2]));
        const unsigned found = matchMask(_mm_and_si128(equal(load(p), text[0]), ends));
        if (found != 0) {
            return p + __builtin_ctz(found) + 3;
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
