#ifndef DALNIM_TYPE_REGEXP_HPP
#define DALNIM_TYPE_REGEXP_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Wildcard.hpp>

namespace com::kor::dal::nim::type {

/**
 * A compiled regular expression: a POSIX extended one (regex(7)), found anywhere in a text unless it
 * is anchored. An empty expression matches every text. Expressions and texts end at their first
 * zero byte.
 *
 * Time, memory and stack are those of the system's matcher. Some expressions are costly beyond measure,
 * and thousands of parentheses within each other overflow the stack: take them from trusted sources
 * alone.
 *
 * Thread safety: one object may match in any number of threads at once.
 */
class DALNIM_API RegExp
{
public:
    static constexpr const char CLASS_NAME[] = "RegExp";

    /**
     * Compiles `exp`.
     * @throws sys::system_error with the number of regcomp() and its text, if that is no expression
     */
    explicit RegExp(const String& exp);
    ~RegExp();

    RegExp(const RegExp&) = delete;
    RegExp& operator=(const RegExp&) = delete;

    /** Whether the expression matches `str`; also false where the system's matcher gives up. */
    bool matches(const String& str) const;

private:
    RX_Wildcard regexp;
};

}

#endif
