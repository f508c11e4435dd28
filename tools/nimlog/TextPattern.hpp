#ifndef DALNIM_TOOLS_NIMLOG_TEXTPATTERN_HPP
#define DALNIM_TOOLS_NIMLOG_TEXTPATTERN_HPP

#include <memory>
#include <regex.h>
#include <string>
#include <string_view>

namespace nimlog {

/**
 * A text to search for: an extended regular expression as in POSIX, whose `^` and `$` match at each line, or
 * a plain string. An expression without special characters is searched as a string, which is faster.
 */
class TextPattern
{
public:
    /** @throws UsageError if the expression is invalid */
    TextPattern(const std::string& pattern, bool isFixed, bool ignoreCase);

    /** Returns true if the pattern matches a part of the text, which may contain any bytes. */
    bool occursIn(std::string_view text);

private:
    struct Free
    {
        void operator()(regex_t* compiled) const noexcept;
    };

    bool matchesExpression(std::string_view text);

    const bool ignoresCase;
    /** Null if the pattern is a string. */
    std::unique_ptr<regex_t, Free> expression;
    /** The string; in lower case if the case is ignored. */
    std::string literal;
    /** The text, in lower case if a string is searched. A member, to reuse its storage. */
    std::string copy;
};

}

#endif
