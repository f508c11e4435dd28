#include <dalnim/dalbase.hpp>

#include <dalnim/io/src/Base64Blocks.hpp>

#include <qv/pmx/src/processor.hpp>

#if QV_IS_ARM64

#include <arm_neon.h>
#include <array>

/**
 * @file
 * Base64 with NEON, which every ARM64 processor has. Each step converts 16 groups: loads and stores
 * distribute the bytes of a group to registers of their own, and one instruction looks up 16 bytes in a table
 * of 64.
 */

namespace com::kor::dal::nim::io {

namespace {

constexpr std::size_t GROUPS_PER_STEP = 16;
constexpr std::size_t DATA_PER_STEP = 48;
constexpr std::size_t TEXT_PER_STEP = 64;

/** Loads a table of 64 bytes. */
uint8x16x4_t load(const unsigned char* table) noexcept
{
    uint8x16x4_t loaded;
    for (int i = 0; i < 4; ++i) {
        loaded.val[i] = vld1q_u8(table + 16 * i);
    }
    return loaded;
}

constexpr std::array<unsigned char, 128> makeValues()
{
    std::array<unsigned char, 128> values{};
    for (unsigned char& value : values) {
        value = B64_INVALID;
    }
    for (unsigned char value = 0; value < 64; ++value) {
        values[static_cast<unsigned char>(B64_XLAT[value])] = value;
    }
    return values;
}

/** The values of all characters below 128, or B64_INVALID. */
constexpr std::array<unsigned char, 128> VALUES = makeValues();

struct ValueTables
{
    uint8x16x4_t low = load(VALUES.data());
    uint8x16x4_t high = load(VALUES.data() + 64);
};

void encode(const unsigned char* from, std::size_t groups, char* to)
{
    const uint8x16x4_t characters = load(reinterpret_cast<const unsigned char*>(B64_XLAT));
    const uint8x16_t sixBits = vdupq_n_u8(0x3F);
    for (; groups >= GROUPS_PER_STEP; groups -= GROUPS_PER_STEP, from += DATA_PER_STEP, to += TEXT_PER_STEP) {
        const uint8x16x3_t data = vld3q_u8(from);
        const uint8x16_t second = vorrq_u8(vshlq_n_u8(data.val[0], 4), vshrq_n_u8(data.val[1], 4));
        const uint8x16_t third = vorrq_u8(vshlq_n_u8(data.val[1], 2), vshrq_n_u8(data.val[2], 6));
        uint8x16x4_t text;
        text.val[0] = vqtbl4q_u8(characters, vshrq_n_u8(data.val[0], 2));
        text.val[1] = vqtbl4q_u8(characters, vandq_u8(second, sixBits));
        text.val[2] = vqtbl4q_u8(characters, vandq_u8(third, sixBits));
        text.val[3] = vqtbl4q_u8(characters, vandq_u8(data.val[2], sixBits));
        vst4q_u8(reinterpret_cast<unsigned char*>(to), text);
    }
    BASE64_SCALAR.encode(from, groups, to);
}

/** Returns the values of characters. That of one outside of the alphabet is 128 or greater. */
inline uint8x16_t valuesOf(const ValueTables& values, uint8x16_t text)
{
    // An index outside of a table has the value 0. The index of the second one starts at 64; a character from
    // 128 on is in neither.
    const uint8x16_t low = vqtbl4q_u8(values.low, text);
    const uint8x16_t high = vqtbl4q_u8(values.high, veorq_u8(text, vdupq_n_u8(0x40)));
    return vorrq_u8(vorrq_u8(low, high), vandq_u8(text, vdupq_n_u8(0x80)));
}

std::size_t decode(const char* from, std::size_t groups, unsigned char* to)
{
    std::size_t done = 0;
    if (groups >= GROUPS_PER_STEP) {
        const ValueTables values;
        for (; groups - done >= GROUPS_PER_STEP;
             done += GROUPS_PER_STEP, from += TEXT_PER_STEP, to += DATA_PER_STEP) {
            const uint8x16x4_t text = vld4q_u8(reinterpret_cast<const unsigned char*>(from));
            const uint8x16_t first = valuesOf(values, text.val[0]);
            const uint8x16_t second = valuesOf(values, text.val[1]);
            const uint8x16_t third = valuesOf(values, text.val[2]);
            const uint8x16_t fourth = valuesOf(values, text.val[3]);
            const uint8x16_t all = vorrq_u8(vorrq_u8(first, second), vorrq_u8(third, fourth));
            if (vmaxvq_u8(all) >= 0x80) {
                break;
            }
            uint8x16x3_t data;
            data.val[0] = vorrq_u8(vshlq_n_u8(first, 2), vshrq_n_u8(second, 4));
            data.val[1] = vorrq_u8(vshlq_n_u8(second, 4), vshrq_n_u8(third, 2));
            data.val[2] = vorrq_u8(vshlq_n_u8(third, 6), fourth);
            vst3q_u8(to, data);
        }
    }
    return done + BASE64_SCALAR.decode(from, groups - done, to);
}

}

const Base64Blocks BASE64_NEON = {encode, decode};

}

#endif
