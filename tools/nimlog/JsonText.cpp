#include "JsonText.hpp"

namespace nimlog {

namespace {

struct Lead
{
    unsigned char first;
    unsigned char last;
    /** Bytes that follow, and the range of the first of them. */
    unsigned int following;
    unsigned char low;
    unsigned char high;
};

/** The well-formed sequences of the Unicode standard: no surrogates, none too long, none above U+10FFFF. */
constexpr Lead LEADS[] = {{0xc2, 0xdf, 1, 0x80, 0xbf}, {0xe0, 0xe0, 2, 0xa0, 0xbf},
                          {0xe1, 0xec, 2, 0x80, 0xbf}, {0xed, 0xed, 2, 0x80, 0x9f},
                          {0xee, 0xef, 2, 0x80, 0xbf}, {0xf0, 0xf0, 3, 0x90, 0xbf},
                          {0xf1, 0xf3, 3, 0x80, 0xbf}, {0xf4, 0xf4, 3, 0x80, 0x8f}};

/** How many bytes are a character, or are to be replaced together; `isGood` tells which. */
std::size_t sequence(std::string_view text, bool& isGood)
{
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    isGood = false;
    for (const Lead& lead : LEADS) {
        if (byte(0) < lead.first || byte(0) > lead.last) {
            continue;
        }
        for (std::size_t at = 1; at <= lead.following; ++at) {
            const unsigned char low = at == 1 ? lead.low : 0x80;
            const unsigned char high = at == 1 ? lead.high : 0xbf;
            if (at == text.size() || byte(at) < low || byte(at) > high) {
                return at;
            }
        }
        isGood = true;
        return lead.following + 1;
    }
    return 1;
}

/** Which bytes stand for themselves. */
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
        bool isGood = false;
        const std::size_t length = sequence(text, isGood);
        to.append(isGood ? text.substr(0, length) : "\xef\xbf\xbd");
        text.remove_prefix(length);
    }
    to += '"';
}

}
