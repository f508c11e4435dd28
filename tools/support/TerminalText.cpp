#include "TerminalText.hpp"

#include "Utf8.hpp"

#include <cstddef>

namespace nimtools {

namespace {

constexpr unsigned char SEVEN_BITS = 0x7f;

bool isControl(unsigned char byte)
{
    return byte < 0x20 || byte == 0x7f;
}

/** Appends a byte as the key that produces it, like cat(1). */
void appendKey(std::string& to, unsigned char byte)
{
    to += byte > SEVEN_BITS ? "M-^" : "^";
    to += static_cast<char>((byte & SEVEN_BITS) ^ 0x40);
}

}

void appendVisible(std::string& to, std::string_view text, std::string_view plain)
{
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        if (byte <= SEVEN_BITS) {
            if (isControl(byte) && plain.find(text[0]) == std::string_view::npos) {
                appendKey(to, byte);
            } else {
                to += text[0];
            }
            text.remove_prefix(1);
            continue;
        }
        bool isWellFormed = false;
        const std::size_t length = utf8Sequence(text, isWellFormed);
        if (isWellFormed && beginsWithC1(text)) {
            appendKey(to, static_cast<unsigned char>(text[1]));
        } else if (isWellFormed) {
            to += text.substr(0, length);
        } else {
            // Terminals without UTF-8 treat such a byte as a control character.
            for (const char c : text.substr(0, length)) {
                const auto part = static_cast<unsigned char>(c);
                if (isControl(part & SEVEN_BITS)) {
                    appendKey(to, part);
                } else {
                    to += c;
                }
            }
        }
        text.remove_prefix(length);
    }
}

}
