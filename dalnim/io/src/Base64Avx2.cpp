#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/Base64Blocks.hpp>

#include <qv/pmx/src/processor.hpp>

#if QV_IS_X86_64

#include <immintrin.h>

/**
 * @file
 * Base64 with AVX2: each step converts 24 bytes of data and 32 characters of text, one register. The library
 * is compiled for every x86-64 processor; only the functions marked here are not. They are called only
 * through base64Blocks(), which checks the processor.
 *
 * A register consists of two lanes of 16 bytes that most instructions do not cross, so each lane processes
 * 12 bytes of data and 16 characters of text. A dword of a lane contains one group.
 */
#define DALNIM_AVX2 __attribute__((target("avx2")))

namespace com::kor::dal::nim::io {

namespace {

constexpr std::size_t DATA_PER_LANE = 12;
constexpr std::size_t GROUPS_PER_STEP = 8;
constexpr std::size_t DATA_PER_STEP = 24;
constexpr std::size_t TEXT_PER_STEP = 32;

/** Returns a table of 16 bytes in each lane, for lookups by _mm256_shuffle_epi8. */
DALNIM_AVX2 inline __m256i table(char b0, char b1, char b2, char b3, char b4, char b5, char b6, char b7,
                                 char b8, char b9, char b10, char b11, char b12, char b13, char b14, char b15)
{
    return _mm256_broadcastsi128_si256(
        _mm_setr_epi8(b0, b1, b2, b3, b4, b5, b6, b7, b8, b9, b10, b11, b12, b13, b14, b15));
}

/** Splits the first 12 bytes of each lane into values of 6 bits, one in each byte. */
DALNIM_AVX2 inline __m256i splitGroups(__m256i data)
{
    // A group of bytes a b c becomes the words (b a) (c b), low byte first, in which its four values are at
    // the bits aaaaaabb bbbb.... and ....cccc ccdddddd.
    const __m256i words = _mm256_shuffle_epi8(data, table(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    // Multiplications shift each word by a distance of its own: values one and three to the right by 10 and
    // 6, two and four to the left by 4 and 8.
    const __m256i odd = _mm256_mulhi_epu16(_mm256_and_si256(words, _mm256_set1_epi32(0x0FC0FC00)),
                                           _mm256_set1_epi32(0x04000040));
    const __m256i even = _mm256_mullo_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x003F03F0)),
                                            _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(odd, even);
}

/** Returns the characters of the alphabet for values of 6 bits. */
DALNIM_AVX2 inline __m256i charactersOf(__m256i values)
{
    // The distance of a character from its value is constant in each of the ranges A-Z, a-z, 0-9, + and /.
    // Digits have the table index 1 to 10, + and / have 11 and 12, and lower-case letters 0. Capital letters
    // would have 0, too, and are set to 13.
    const __m256i beyondLetters = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    const __m256i isCapital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    const __m256i range = _mm256_or_si256(beyondLetters, _mm256_and_si256(isCapital, _mm256_set1_epi8(13)));
    constexpr char DIGIT = '0' - 52;
    const __m256i distances = table('a' - 26, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT, DIGIT,
                                    DIGIT, '+' - 62, '/' - 63, 'A', 0, 0);
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(distances, range));
}

DALNIM_AVX2 void encode(const unsigned char* from, std::size_t groups, char* to)
{
    // Each lane loads 4 bytes more than it uses, so the scalar loop converts the last groups.
    constexpr std::size_t LOADED = GROUPS_PER_STEP + 2;
    for (; groups >= LOADED; groups -= GROUPS_PER_STEP, from += DATA_PER_STEP, to += TEXT_PER_STEP) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + DATA_PER_LANE));
        const __m256i text = charactersOf(splitGroups(_mm256_set_m128i(high, low)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), text);
    }
    BASE64_SCALAR.encode(from, groups, to);
}

/** Converts characters to their values. Returns false if one of them is outside of the alphabet. */
DALNIM_AVX2 inline bool valuesOf(__m256i& text)
{
    const __m256i nibble = _mm256_set1_epi8(0x0F);
    const __m256i high = _mm256_and_si256(_mm256_srli_epi32(text, 4), nibble);
    const __m256i low = _mm256_and_si256(text, nibble);

    // Each bit is a class of high nibbles (0, 1 and 8 to 15; 2; 3; 4 and 6; 5 and 7). In the second table it
    // is set for the low nibbles that form no character of the alphabet with that class.
    const __m256i badHigh =
        table(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
    const __m256i badLow =
        table(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
    if (_mm256_testz_si256(_mm256_shuffle_epi8(badHigh, high), _mm256_shuffle_epi8(badLow, low)) == 0) {
        return false;
    }

    // The high nibble determines the distance to the value, except for "/", which has the same one as "+" and
    // is moved to the unused nibble before it.
    const __m256i isSlash = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('/'));
    const __m256i distances =
        table(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0);
    text = _mm256_add_epi8(text, _mm256_shuffle_epi8(distances, _mm256_add_epi8(high, isSlash)));
    return true;
}

/** Joins values of 6 bits to 24 bytes, at the beginning of the register. */
DALNIM_AVX2 inline __m256i joinGroups(__m256i values)
{
    // Two multiplications with additions join four values in a dword to one of 24 bits.
    const __m256i halves = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(halves, _mm256_set1_epi32(0x00011000));
    // Takes the low three bytes of each dword, the highest first, then removes the gap between the lanes.
    const __m256i lanes =
        _mm256_shuffle_epi8(groups, table(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    return _mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
}

DALNIM_AVX2 std::size_t decode(const char* from, std::size_t groups, unsigned char* to)
{
    // Stores 32 bytes for 24, so there must be space for 3 more groups.
    constexpr std::size_t STORED = GROUPS_PER_STEP + 3;
    std::size_t done = 0;
    for (; groups - done >= STORED; done += GROUPS_PER_STEP, from += TEXT_PER_STEP, to += DATA_PER_STEP) {
        __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
        if (!valuesOf(text)) {
            break;
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), joinGroups(text));
    }
    return done + BASE64_SCALAR.decode(from, groups - done, to);
}

}

const Base64Blocks BASE64_AVX2 = {encode, decode};

}

#endif
