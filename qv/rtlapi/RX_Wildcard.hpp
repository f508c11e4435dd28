#ifndef QV_RTLAPI_RX_WILDCARD_HPP
#define QV_RTLAPI_RX_WILDCARD_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_String.hpp>

/**
 * A compiled pattern.
 *
 * A pattern of style WILD matches a whole string:
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
 * In a set, a leading `]` and a leading or trailing `-` match themselves; there are no named classes. Slashes
 * and leading dots are ordinary bytes. Matching does not depend on the locale; its time is bounded by the
 * product of the two lengths.
 *
 * A pattern of style REGEXP is a POSIX extended regular expression. It matches anywhere in the string unless
 * it is anchored; the empty expression matches any string. Matching takes as long as the system's matcher
 * needs: use only expressions from trusted sources.
 *
 * Patterns and strings end at their first zero byte.
 *
 * Thread safety: any number of threads may call `matches` concurrently; all other operations require
 * exclusive access.
 */
class DALNIM_API RX_Wildcard
{
public:
    /** The syntax of a pattern. */
    enum Style { WILD = 0, REGEXP = 1 };

    /** Compiles a pattern. Throws as `setPattern` does. */
    RX_Wildcard(const RX_String& pattern, Style style);
    RX_Wildcard(const RX_Wildcard&) = delete;
    RX_Wildcard& operator=(const RX_Wildcard&) = delete;
    ~RX_Wildcard();

    /**
     * Replaces the pattern. If this throws, the previous pattern is kept.
     *
     * @throws RX_ExError  if the pattern is malformed: 22 (EINVAL) for the style WILD, the error code of
     *     `regcomp` (REG_BADPAT and so on, from 1) for REGEXP. The arguments are the reason and the pattern.
     * @throws std::bad_alloc
     */
    void setPattern(const RX_String& pattern, Style style);

    /** Returns 1 if `text` matches, otherwise 0; always 0 without a compiled pattern. */
    qv_bool_t matches(const char* text) const;

    /** Frees the compiled pattern, if any. Afterwards nothing matches until `setPattern`. */
    void freeCompiled() noexcept;

    /** Returns a pattern of style WILD that matches only `text`, with wildcards escaped by backslashes. */
    static RX_String quote(const RX_String& text);

private:
    struct Compiled;
    struct CompiledWild;
    struct CompiledRegexp;

    static std::unique_ptr<const Compiled> compile(const RX_String& pattern, Style style);

    std::unique_ptr<const Compiled> _compiled;
};

#endif
