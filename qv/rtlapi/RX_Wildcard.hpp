#ifndef QV_RTLAPI_RX_WILDCARD_HPP
#define QV_RTLAPI_RX_WILDCARD_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_String.hpp>

/**
 * A compiled pattern that texts are matched against.
 *
 * In the style WILD the pattern covers the whole text:
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
 * In a set, a `]` that comes first and a `-` at either end stand for themselves; there are no named
 * classes. A slash and a leading dot are bytes like any other, and no locale plays a part. Time is
 * bounded by the product of the two lengths.
 *
 * In the style REGEXP the pattern is a POSIX extended regular expression, found anywhere in the text
 * unless it is anchored; the empty one matches everything. Its cost is that of the system's matcher:
 * take expressions from trusted sources alone.
 *
 * Patterns and texts end at their first zero byte.
 *
 * Thread safety: `matches` may run in any number of threads at once; everything else needs the object
 * for itself.
 */
class DALNIM_API RX_Wildcard
{
public:
    /** What a pattern is written in. */
    enum Style { WILD = 0, REGEXP = 1 };

    /** Compiles, as `setPattern` does. */
    RX_Wildcard(const RX_String& pattern, Style style);
    RX_Wildcard(const RX_Wildcard&) = delete;
    RX_Wildcard& operator=(const RX_Wildcard&) = delete;
    ~RX_Wildcard();

    /**
     * Compiles `pattern` in place of the present one, which stays if this fails.
     *
     * A bad pattern raises RX_ExError: in the style WILD with code 22 (EINVAL), in the style REGEXP
     * with the number that `regcomp` gives (REG_BADPAT and its kin, from 1). Its arguments are the
     * reason and the pattern.
     */
    void setPattern(const RX_String& pattern, Style style);

    /** 1 if `text` matches, otherwise 0; always 0 without a compiled pattern. */
    qv_bool_t matches(const char* text) const;

    /** Releases the compiled form, if any: from then on nothing matches until `setPattern`. */
    void freeCompiled() noexcept;

    /** A pattern in the style WILD that matches `text` alone: its wildcards behind backslashes. */
    static RX_String quote(const RX_String& text);

private:
    struct Compiled;
    struct CompiledWild;
    struct CompiledRegexp;

    static std::unique_ptr<const Compiled> compile(const RX_String& pattern, Style style);

    std::unique_ptr<const Compiled> _compiled;
};

#endif
