#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/Base64Blocks.hpp>

#include <array>
#include <cstdint>
#include <cstring>

namespace com::kor::dal::nim::io {

namespace {

constexpr std::size_t index(char c)
{
    return static_cast<unsigned char>(c);
}

/** Two characters for each value of 12 bits, so that a group takes two lookups. */
struct Pair
{
    char text[2];
};

constexpr std::array<Pair, 4096> makePairs()
{
    std::array<Pair, 4096> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {{B64_XLAT[i >> 6], B64_XLAT[i & 63]}};
    }
    return pairs;
}

constexpr std::array<Pair, 4096> PAIRS = makePairs();

/** Outside of the 24 bits of a group: set if any of its characters is outside of the alphabet. */
constexpr std::uint32_t INVALID_GROUP = 0x80000000;

typedef std::array<std::uint32_t, 256> GroupBits;

/** Returns the bits that each character has in a group, if it is at `index_in_group`. */
constexpr GroupBits makeGroupBits(unsigned int index_in_group)
{
    GroupBits bits{};
    for (std::uint32_t& entry : bits) {
        entry = INVALID_GROUP;
    }
    for (std::uint32_t value = 0; value < 64; ++value) {
        bits[index(B64_XLAT[value])] = value << (18 - 6 * index_in_group);
    }
    return bits;
}

constexpr std::array<GroupBits, 4> GROUP_BITS = {makeGroupBits(0), makeGroupBits(1), makeGroupBits(2),
                                                 makeGroupBits(3)};

void encode(const unsigned char* from, std::size_t groups, char* to)
{
    for (; groups != 0; --groups, from += 3, to += 4) {
        const std::uint32_t bits = std::uint32_t{from[0]} << 16 | std::uint32_t{from[1]} << 8 | from[2];
        std::memcpy(to, PAIRS[bits >> 12].text, 2);
        std::memcpy(to + 2, PAIRS[bits & 0xFFF].text, 2);
    }
}

std::size_t decode(const char* from, std::size_t groups, unsigned char* to)
{
    for (std::size_t done = 0; done != groups; ++done, from += 4, to += 3) {
        const std::uint32_t bits = GROUP_BITS[0][index(from[0])] | GROUP_BITS[1][index(from[1])]
                                   | GROUP_BITS[2][index(from[2])] | GROUP_BITS[3][index(from[3])];
        if ((bits & INVALID_GROUP) != 0) {
            return done;
        }
        to[0] = static_cast<unsigned char>(bits >> 16);
        to[1] = static_cast<unsigned char>(bits >> 8 & 0xFF);
        to[2] = static_cast<unsigned char>(bits & 0xFF);
    }
    return groups;
}

}

const Base64Blocks BASE64_SCALAR = {encode, decode};

unsigned char base64Value(char c) noexcept
{
    const std::uint32_t bits = GROUP_BITS[3][index(c)];
    return bits == INVALID_GROUP ? B64_INVALID : static_cast<unsigned char>(bits);
}

}
