#ifndef QV_PMX_WILDPATTERN_HPP
#define QV_PMX_WILDPATTERN_HPP

#include <bitset>
#include <cstddef>
#include <vector>

namespace qv {

/**
 * A compiled wildcard pattern in the manner of a shell, matched against the whole of a text.
 *
 * | In the pattern | Matches |
 * |---|---|
 * | `*` | any run of bytes, also none |
 * | `?` | any one byte |
 * | `[abc]`, `[a-z]` | one byte of the set |
 * | `[!abc]`, `[^a-z]` | one byte outside of the set |
 * | `<->` | a decimal number: one or more digits 0 to 9 |
 * | backslash and a byte | that byte, inside of brackets too |
 *
 * Every other byte matches itself. In a set, a `]` that comes first and a `-` at either end stand for
 * themselves, and there are no named classes. A slash and a leading dot are bytes like any other, and
 * no locale plays a part. Matching takes at most (length of the pattern) * (length of the text) steps,
 * whatever the pattern.
 *
 * Shared by RX_Wildcard and the directory scan. A compiled pattern is never altered: any number of
 * threads may match on it at once.
 */
class WildPattern
{
public:
    /** Compiles; throws std::invalid_argument with what is wrong with a bad `pattern`. */
    explicit WildPattern(const char* pattern);

    /** Allocates only for a pattern of more than 255 tokens. */
    bool matches(const char* text) const;

private:
    typedef std::bitset<256> ByteSet;

    /** What stands at one place of the pattern: the bytes that it takes, and how many of them. */
    struct Token
    {
        ByteSet bytes;
        bool optional;
        bool repeated;
    };

    class Front;

    const char* addSet(const char* pos);
    void add(const ByteSet& bytes, bool optional = false, bool repeated = false);

    std::vector<Token> _tokens;
};

}

#endif
