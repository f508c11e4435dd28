#ifndef QV_RTLAPI_RX_HASH_HPP
#define QV_RTLAPI_RX_HASH_HPP

/**
 * @file
 * Hashes and equality of keys, for the collections.
 */

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_String.hpp>

/**
 * Returns the hash of `length` bytes, which are read a word at a time; fastest if `bytes` is aligned to a
 * word. The hash is the same in every process, so do not use it for keys that an adversary chooses.
 */
DALNIM_API std::size_t RX_hashAlignedBytes(const char* bytes, std::size_t length) noexcept;

/** Returns the hash of the bytes of a string. */
DALNIM_API std::size_t RX_hash(const RX_String& key) noexcept;

/** Returns the hash of an integer. */
template <typename T, std::enable_if_t<std::is_integral_v<T>, int> = 0>
std::size_t RX_hash(T key) noexcept
{
    // The finaliser of SplitMix64: every bit of the key affects every bit of the hash.
    std::uint64_t mixed = static_cast<std::uint64_t>(key);
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebU;
    return static_cast<std::size_t>(mixed ^ (mixed >> 31));
}

/** Returns true if two keys are equal. */
template <typename T>
bool RX_keyEq(const T& left, const T& right)
{
    return left == right;
}

#endif
