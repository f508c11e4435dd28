#ifndef QV_PMX_WILDPATTERN_HPP
#define QV_PMX_WILDPATTERN_HPP

#include <bitset>
#include <cstddef>
#include <vector>

namespace qv {

/**
 * A compiled shell-style wildcard pattern, matched against a whole string.
 *
 * | In the pattern | Matches |
 * |---|---|
 * | `*` | any number of bytes, including none |
 * | `?` | any one byte |
 * | `[abc]`, `[a-z]` | one byte of the set |
 * | `[!abc]`, `[^a-z]` | one byte that is not in the set |
 * | `<->` | a decimal number: one or more digits 0 to 9 |
 * | backslash and a byte | that byte, also inside brackets |
 *
 * Every other byte matches itself. In a set, a leading `]` and a leading or trailing `-` match
 * themselves; there are no named classes. Slashes and leading dots are ordinary bytes. Matching does not
 * depend on the locale, and takes at most (length of the pattern) * (length of the string) steps.
 *
 * Used by RX_Wildcard and the directory scan.
 *
 * Thread safety: immutable; any number of threads may call matches() concurrently.
 */
class WildPattern
{
public:
    /**
     * Compiles a pattern.
     *
     * @throws std::invalid_argument  if `pattern` is malformed; the message is the reason
     */
    explicit WildPattern(const char* pattern);

    /** Returns true if the whole of `text` matches. Allocates only if the pattern exceeds 255 tokens. */
    bool matches(const char* text) const;

private:
    typedef std::bitset<256> ByteSet;

    /** One element of the pattern: the bytes that it accepts, and how many of them. */
    struct Token
    {
        ByteSet bytes;
        bool optional;
        bool repeated;
    };

    class ActiveStates;

    const char* addSet(const char* pos);
    void add(const ByteSet& bytes, bool optional = false, bool repeated = false);

    std::vector<Token> _tokens;
};

}

#endif
