#include <qv/rtlapi/RX_hash.hpp>

#include <algorithm>
#include <cstring>

std::size_t RX_hashAlignedBytes(const char* bytes, std::size_t length) noexcept
{
    // Includes the length, since the padding of the last word does not differ from zero bytes in the data.
    std::size_t hash = RX_hash(length);
    for (std::size_t done = 0; done < length; done += sizeof(std::uint64_t)) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + done, std::min(sizeof word, length - done));
        hash = RX_hash(hash ^ word);
    }
    return hash;
}

std::size_t RX_hash(const RX_String& key) noexcept
{
    return RX_hashAlignedBytes(key.data(), key.length());
}
