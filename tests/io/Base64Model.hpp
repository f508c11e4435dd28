#ifndef TESTS_IO_BASE64MODEL_HPP
#define TESTS_IO_BASE64MODEL_HPP

#include <cstddef>
#include <cstring>
#include <string>

/** A model of Base64 in its simplest form: bit by bit, one byte after another. */
namespace base64model {

constexpr char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/** Encodes. A width of 0 means no line breaks; others must be multiples of 4. */
inline std::string encoded(const std::string& data, std::size_t width)
{
    std::string result;
    std::size_t in_line = 0;
    const auto put = [&](char c) {
        result += c;
        if (++in_line == width) {
            result += '\n';
            in_line = 0;
        }
    };

    std::string bits;
    for (const char c : data) {
        for (int bit = 7; bit >= 0; --bit) {
            bits += (static_cast<unsigned char>(c) >> bit & 1) != 0 ? '1' : '0';
        }
    }
    while (bits.size() % 6 != 0) {
        bits += '0';
    }
    for (std::size_t pos = 0; pos < bits.size(); pos += 6) {
        put(ALPHABET[std::stoul(bits.substr(pos, 6), nullptr, 2)]);
    }
    for (std::size_t chars = bits.size() / 6; chars % 4 != 0; ++chars) {
        put('=');
    }
    return result;
}

struct Decoded
{
    /** The output, including that before an error. */
    std::string data;
    bool illegal = false;
    /** Number of bytes read. */
    std::size_t position = 0;
    /** Whether end of file was read, rather than only reached. */
    bool sawEnd = false;
};

inline Decoded decoded(const std::string& text, bool skip_invalid)
{
    Decoded result;
    std::size_t& pos = result.position;
    std::size_t pads = 0;
    bool ended = false;
    while (!ended) {
        std::string group;
        while (group.size() < 4) {
            if (pos == text.size()) {
                result.sawEnd = true;
                result.illegal = !group.empty();
                return result;
            }
            const char c = text[pos];
            if (pads != 0 && c != '=') {
                result.illegal = true;
                return result;
            }
            if (c == '=') {
                if (group.empty()) {
                    return result;
                }
                ++pads;
                group += '\0';
                ended = true;
            } else if (c != 0 && std::strchr(ALPHABET, c) != nullptr) {
                group += static_cast<char>(std::strchr(ALPHABET, c) - ALPHABET);
            } else if (!skip_invalid && (c == 0 || std::strchr(" \t\n\v\f\r", c) == nullptr)) {
                result.illegal = true;
                return result;
            }
            ++pos;
        }
        if (pads > 2) {
            result.illegal = true;
            return result;
        }
        const int bits = group[0] << 18 | group[1] << 12 | group[2] << 6 | group[3];
        for (std::size_t i = 0; i < 3 - pads; ++i) {
            result.data += static_cast<char>(bits >> (16 - 8 * i) & 0xFF);
        }
    }
    return result;
}

}

#endif
