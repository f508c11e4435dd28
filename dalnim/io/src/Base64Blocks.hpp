#ifndef DALNIM_IO_SRC_BASE64BLOCKS_HPP
#define DALNIM_IO_SRC_BASE64BLOCKS_HPP

#include <cstddef>

namespace com::kor::dal::nim::io {

/** The 64 characters of the standard alphabet (RFC 4648, table 1). */
constexpr char B64_XLAT[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/**
 * The inner loops of Base64: whole groups of 3 bytes and 4 characters, one behind the other, with
 * nothing in between. They come in several makes for what the processor can do, all of the same
 * effect.
 */
struct Base64Blocks
{
    /** Encodes `groups` groups; `to` has room for them. */
    void (*encode)(const unsigned char* from, std::size_t groups, char* to);

    /**
     * Decodes up to `groups` groups, and stops before the first one with a character outside of
     * the alphabet. Returns how many it decoded. Of the room for `groups` groups at `to`, what is
     * behind those may have been written to as well.
     */
    std::size_t (*decode)(const char* from, std::size_t groups, unsigned char* to);
};

/** For every processor. */
extern const Base64Blocks BASE64_SCALAR;

/** The fastest that this processor runs. */
const Base64Blocks& base64Blocks() noexcept;

/** In place of the value of a character that is not of the alphabet. */
constexpr unsigned char B64_INVALID = 0xFF;

/** The value of a character in the alphabet, or B64_INVALID. */
unsigned char base64Value(char c) noexcept;

}

#endif
