#ifndef DALNIM_IO_SRC_BASE64BLOCKS_HPP
#define DALNIM_IO_SRC_BASE64BLOCKS_HPP

#include <cstddef>

namespace com::kor::dal::nim::io {

/** The 64 characters of the standard alphabet (RFC 4648, table 1). */
constexpr char B64_XLAT[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/**
 * The inner loops of Base64, which convert consecutive groups of 3 bytes and 4 characters. There is one
 * implementation for each instruction set; all have the same results.
 */
struct Base64Blocks
{
    /** Encodes `groups` groups. `to` must have space for them. */
    void (*encode)(const unsigned char* from, std::size_t groups, char* to);

    /**
     * Decodes groups up to the first one with a character outside of the alphabet.
     * @param groups  the maximum number of groups. `to` must have space for them; bytes after the decoded
     * groups may be overwritten
     * @return the number of decoded groups
     */
    std::size_t (*decode)(const char* from, std::size_t groups, unsigned char* to);
};

/** The implementation for every processor. */
extern const Base64Blocks BASE64_SCALAR;

/** The implementations with vector instructions. Each exists only in builds for its processors. */
extern const Base64Blocks BASE64_AVX2;
extern const Base64Blocks BASE64_NEON;

/** Returns the fastest implementation that this processor supports. */
const Base64Blocks& base64Blocks() noexcept;

/** The result of base64Value() for a character outside of the alphabet. */
constexpr unsigned char B64_INVALID = 0xFF;

/** Returns the value of a character in the alphabet, or B64_INVALID. */
unsigned char base64Value(char c) noexcept;

}

#endif
