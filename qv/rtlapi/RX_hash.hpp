#ifndef QV_RTLAPI_RX_HASH_HPP
#define QV_RTLAPI_RX_HASH_HPP

/**
 * @file
 * Hashes and the equality of keys, for the collections.
 */

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_String.hpp>

/**
 * The hash of `length` bytes, taken a word at a time; fastest where `bytes` is aligned to a word. The
 * same in every process, so it is not for keys that an adversary chooses.
 */
DALNIM_API std::size_t RX_hashAlignedBytes(const char* bytes, std::size_t length) noexcept;

/** The hash of a string's bytes. */
DALNIM_API std::size_t RX_hash(const RX_String& key) noexcept;

/** The hash of a number. */
template <typename T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
std::size_t RX_hash(T key) noexcept
{
    // The finaliser of SplitMix64: every bit of the number reaches every bit of the hash.
    std::uint64_t mixed = static_cast<std::uint64_t>(key);
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
    return static_cast<std::size_t>(mixed ^ (mixed >> 31));
}

/** Whether two keys are the same. */
template <typename T>
bool RX_keyEq(const T& left, const T& right)
{
    return left == right;
}

#endif
