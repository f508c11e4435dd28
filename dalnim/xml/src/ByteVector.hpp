#ifndef DALNIM_XML_SRC_BYTEVECTOR_HPP
#define DALNIM_XML_SRC_BYTEVECTOR_HPP

#include <qv/pmx/src/processor.hpp>

#include <cstddef>
#include <cstdint>

#if QV_IS_X86_64
#include <emmintrin.h>
#elif QV_IS_ARM64
#include <arm_neon.h>
#endif

/**
 * @file
 * Operations on 16 bytes at a time, by the compiler's vector extension. It translates them to SSE2, which
 * every x86-64 processor has, and to NEON, which every ARM64 processor has. Only the reduction of a
 * comparison to a mask has a form for each processor.
 */

namespace com::kor::dal::nim::xml {

/** 16 bytes. Operators apply to each byte; a comparison sets all bits of the bytes that match. */
typedef signed char ByteVector __attribute__((vector_size(16)));

constexpr std::ptrdiff_t SCAN_WIDTH = sizeof(ByteVector);

/** The same in memory, at any address and in an array of any type. */
typedef ByteVector ByteVectorInMemory __attribute__((aligned(1), may_alias));

inline ByteVector load(const char* p) noexcept
{
    // Not by memcpy(), which the compiler takes for larger than it is when it decides what to inline.
    return *reinterpret_cast<const ByteVectorInMemory*>(p);
}

inline void store(char* p, ByteVector bytes) noexcept
{
    *reinterpret_cast<ByteVectorInMemory*>(p) = bytes;
}

inline ByteVector equal(ByteVector bytes, char byte) noexcept
{
    return bytes == static_cast<signed char>(byte);
}

/** Compares each byte with the range of `count` values that starts at `first`. */
inline ByteVector inRange(ByteVector bytes, char first, int count) noexcept
{
    // Shifts the range to the smallest signed values, so that one signed comparison suffices. SSE2 has no
    // unsigned one.
    typedef unsigned char UnsignedBytes __attribute__((vector_size(16)));
    const auto moved = reinterpret_cast<UnsignedBytes>(bytes) + static_cast<unsigned char>(-128 - first);
    return reinterpret_cast<ByteVector>(moved) < static_cast<signed char>(-128 + count);
}

/** A comparison, with the same number of bits for each byte; the lowest bits are those of the first byte. */
#if QV_IS_ARM64
typedef std::uint64_t MatchMask;
constexpr unsigned MASK_BITS_PER_BYTE = 4;
constexpr MatchMask ALL_BYTES = ~MatchMask(0);
#else
typedef unsigned MatchMask;
constexpr unsigned MASK_BITS_PER_BYTE = 1;
constexpr MatchMask ALL_BYTES = 0xFFFF;
#endif

inline MatchMask matchMask(ByteVector comparison) noexcept
{
#if QV_IS_X86_64
    return static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(comparison)));
#elif QV_IS_ARM64
    // NEON cannot collect one bit of each byte. Shifting two bytes at a time by four bits, and keeping the
    // low half of the result, leaves four bits of each.
    const uint8x8_t halves = vshrn_n_u16(reinterpret_cast<uint16x8_t>(comparison), 4);
    return vget_lane_u64(vreinterpret_u64_u8(halves), 0);
#else
    MatchMask mask = 0;
    for (unsigned i = 0; i < sizeof comparison; ++i) {
        mask |= static_cast<MatchMask>(comparison[i] & 1) << i;
    }
    return mask;
#endif
}

/** Returns the index of the first byte in a mask, which must not be 0. */
inline unsigned firstByte(MatchMask mask) noexcept
{
    if constexpr (sizeof mask == sizeof(unsigned)) {
        return static_cast<unsigned>(__builtin_ctz(static_cast<unsigned>(mask))) / MASK_BITS_PER_BYTE;
    } else {
        return static_cast<unsigned>(__builtin_ctzll(mask)) / MASK_BITS_PER_BYTE;
    }
}

/** Returns the mask of the first `count` bytes, 1 to 16. */
inline MatchMask firstBytesMask(std::size_t count) noexcept
{
    if constexpr (MASK_BITS_PER_BYTE == 1) {
        return (MatchMask(1) << count) - 1;
    } else {
        return ALL_BYTES >> (MASK_BITS_PER_BYTE * (sizeof(ByteVector) - count));
    }
}

}

#endif
