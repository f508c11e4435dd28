#include "JsonText.hpp"

#include <support/Utf8.hpp>

namespace nimlog {

namespace {

/** The bytes that need no escape. */
struct PlainBytes
{
    constexpr PlainBytes()
    {
        for (unsigned int byte = 0x20; byte < 0x7f; ++byte) {
            isPlain[byte] = byte != '"' && byte != '\\';
        }
    }
    bool isPlain[256] = {};
};
constexpr PlainBytes PLAIN;

void appendEscaped(std::string& to, char c)
{
    static const char HEX[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
    case '"':
    case '\\':
        (to += '\\') += c;
        break;
    case '\n':
        to += "\\n";
        break;
    case '\r':
        to += "\\r";
        break;
    case '\t':
        to += "\\t";
        break;
    default:
        ((to += "\\u00") += HEX[byte >> 4]) += HEX[byte & 0xf];
    }
}

}

void appendJson(std::string& to, std::string_view text)
{
    to += '"';
    while (!text.empty()) {
        std::size_t plain = 0;
        while (plain < text.size() && PLAIN.isPlain[static_cast<unsigned char>(text[plain])]) {
            ++plain;
        }
        to.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            break;
        }
        if (static_cast<unsigned char>(text[0]) < 0x80) {
            appendEscaped(to, text[0]);
            text.remove_prefix(1);
            continue;
        }
        bool isWellFormed = false;
        const std::size_t length = nimtools::utf8Sequence(text, isWellFormed);
        if (isWellFormed && nimtools::beginsWithC1(text)) {
            // Escaped, because some terminals execute it as a command.
            appendEscaped(to, text[1]);
        } else {
            to.append(isWellFormed ? text.substr(0, length) : "\xef\xbf\xbd");
        }
        text.remove_prefix(length);
    }
    to += '"';
}

}
