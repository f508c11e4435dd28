#ifndef DALNIM_XML_SRC_TEXTSCAN_HPP
#define DALNIM_XML_SRC_TEXTSCAN_HPP

#include "CharTypes.hpp"

#include <cstring>
#include <emmintrin.h>

/**
 * @file
 * The searches that a document's bytes spend their time in, 16 bytes at a time with the vector
 * instructions that every x86-64 processor has. None reads behind `end`, and only those that skip
 * read the NUL there.
 */

namespace com::kor::dal::nim::xml {

constexpr std::ptrdiff_t SCAN_WIDTH = sizeof(__m128i);
constexpr unsigned ALL_OF_THEM = 0xFFFF;

inline __m128i load(const char* p) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

/** A bit for each byte, set where the comparison held. */
inline unsigned bitsOf(__m128i comparison) noexcept
{
    return static_cast<unsigned>(_mm_movemask_epi8(comparison));
}

inline __m128i equal(__m128i bytes, char byte) noexcept
{
    return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(byte));
}

/** Where a byte is `first` or one of the `count - 1` that follow it. */
inline __m128i inRange(__m128i bytes, char first, int count) noexcept
{
    // Moved so that the range is the lowest of the signed numbers.
    const __m128i moved = _mm_add_epi8(bytes, _mm_set1_epi8(static_cast<char>(-128 - first)));
    return _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(-128 + count)));
}

/** The first `byte` from `p`, or `end`. */
inline char* findByte(char* p, char* end, char byte) noexcept
{
    auto* const found = static_cast<char*>(std::memchr(p, byte, static_cast<std::size_t>(end - p)));
    return found == nullptr ? end : found;
}

/** The first byte from `p` that is `first` or `second`, or `end`. */
inline char* findEither(char* p, char* end, char first, char second) noexcept
{
    for (; end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const __m128i bytes = load(p);
        const unsigned found = bitsOf(_mm_or_si128(equal(bytes, first), equal(bytes, second)));
        if (found != 0) {
            return p + __builtin_ctz(found);
        }
    }
    while (p != end && *p != first && *p != second) {
        ++p;
    }
    return p;
}

/** The first byte from `p` that is a quote of this kind, an "&" or a line break, or `end`. */
inline char* findInValue(char* p, char* end, char quote) noexcept
{
    for (; end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const __m128i bytes = load(p);
        const __m128i symbols = _mm_or_si128(equal(bytes, quote), equal(bytes, '&'));
        const __m128i breaks = _mm_or_si128(equal(bytes, '\n'), equal(bytes, '\r'));
        const unsigned found = bitsOf(_mm_or_si128(symbols, breaks));
        if (found != 0) {
            return p + __builtin_ctz(found);
        }
    }
    while (p != end && *p != quote && *p != '&' && *p != '\n' && *p != '\r') {
        ++p;
    }
    return p;
}

/** The first byte from `p` that is no whitespace. */
inline char* skipSpace(char* p, const char* end) noexcept
{
    // Few blanks one by one: a branch that is foreseen lets the processor run ahead, where it would wait
    // for a position that is computed.
    constexpr int FEW = 8;
    for (int i = 0; i < FEW; ++i, ++p) {
        if (!isA(CHAR_SPACE, *p)) {
            return p;
        }
    }
    for (; isA(CHAR_SPACE, *p) && end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const __m128i bytes = load(p);
        const unsigned blank = bitsOf(_mm_or_si128(equal(bytes, ' '), inRange(bytes, '\t', 5)));
        if (blank != ALL_OF_THEM) {
            p += __builtin_ctz(~blank);
            break;
        }
    }
    return skip(CHAR_SPACE, p);
}

/** The byte behind the next `text`, three bytes, or null. */
inline char* findBehind(char* p, char* end, const char (&text)[4]) noexcept
{
    for (; end - p >= SCAN_WIDTH + 2; p += SCAN_WIDTH) {
        const __m128i ends = _mm_and_si128(equal(load(p + 1), text[1]), equal(load(p + 2), text[2]));
        const unsigned found = bitsOf(_mm_and_si128(equal(load(p), text[0]), ends));
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

/** True when the text from `p` to `end` begins with `prefix`. */
template <std::size_t N>
bool startsWith(const char* p, const char* end, const char (&prefix)[N]) noexcept
{
    constexpr std::size_t length = N - 1;
    return static_cast<std::size_t>(end - p) >= length && std::memcmp(p, prefix, length) == 0;
}

}

#endif
