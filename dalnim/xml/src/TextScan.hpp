#ifndef DALNIM_XML_SRC_TEXTSCAN_HPP
#define DALNIM_XML_SRC_TEXTSCAN_HPP

#include <cstring>
#include <emmintrin.h>

/**
 * @file
 * The searches that a document's bytes spend their time in, 16 bytes at a time with the vector
 * instructions that every x86-64 processor has. None reads at or behind `end`.
 */

namespace com::kor::dal::nim::xml {

constexpr std::ptrdiff_t SCAN_WIDTH = sizeof(__m128i);

/** Bit i is set where byte i equals the one that `pattern` repeats. */
inline unsigned matches(__m128i bytes, __m128i pattern) noexcept
{
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, pattern)));
}

/** The first byte from `p` that is `first` or `second`, or `end`. */
inline char* findEither(char* p, char* end, char first, char second) noexcept
{
    const __m128i firsts = _mm_set1_epi8(first);
    const __m128i seconds = _mm_set1_epi8(second);
    for (; end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const unsigned found = matches(bytes, firsts) | matches(bytes, seconds);
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
    const __m128i quotes = _mm_set1_epi8(quote);
    const __m128i ampersands = _mm_set1_epi8('&');
    const __m128i feeds = _mm_set1_epi8('\n');
    const __m128i returns = _mm_set1_epi8('\r');
    for (; end - p >= SCAN_WIDTH; p += SCAN_WIDTH) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const unsigned found = matches(bytes, quotes) | matches(bytes, ampersands)
                               | matches(bytes, feeds) | matches(bytes, returns);
        if (found != 0) {
            return p + __builtin_ctz(found);
        }
    }
    while (p != end && *p != quote && *p != '&' && *p != '\n' && *p != '\r') {
        ++p;
    }
    return p;
}

/** The byte behind the next `text`, or null. */
template <std::size_t N>
char* findBehind(char* p, char* end, const char (&text)[N]) noexcept
{
    constexpr std::size_t length = N - 1;
    void* const found = memmem(p, static_cast<std::size_t>(end - p), text, length);
    return found == nullptr ? nullptr : static_cast<char*>(found) + length;
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
