#include "Utf8.hpp"

namespace nimtools {

namespace {

struct Lead
{
    unsigned char first;
    unsigned char last;
    /** Number of continuation bytes; `low` and `high` are the range of the first. */
    unsigned int following;
    unsigned char low;
    unsigned char high;
};

/**
 * Well-formed sequences of the Unicode standard: no surrogates, no overlong forms, nothing above U+10FFFF.
 */
constexpr Lead LEADS[] = {{0xc2, 0xdf, 1, 0x80, 0xbf}, {0xe0, 0xe0, 2, 0xa0, 0xbf},
                          {0xe1, 0xec, 2, 0x80, 0xbf}, {0xed, 0xed, 2, 0x80, 0x9f},
                          {0xee, 0xef, 2, 0x80, 0xbf}, {0xf0, 0xf0, 3, 0x90, 0xbf},
                          {0xf1, 0xf3, 3, 0x80, 0xbf}, {0xf4, 0xf4, 3, 0x80, 0x8f}};

}

std::size_t utf8Sequence(std::string_view text, bool& isWellFormed)
{
    const auto byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    isWellFormed = false;
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
        isWellFormed = true;
        return lead.following + 1;
    }
    return 1;
}

bool beginsWithC1(std::string_view text)
{
    return text.size() >= 2 && text[0] == '\xc2' && static_cast<unsigned char>(text[1]) >= 0x80
           && static_cast<unsigned char>(text[1]) <= 0x9f;
}

}
