#ifndef DALNIM_TYPE_REGEXP_HPP
#define DALNIM_TYPE_REGEXP_HPP

#include <dalnim/String.hpp>
#include <dalnim/type/nsdefs.hpp>
#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Wildcard.hpp>

namespace com::kor::dal::nim::type {

/**
 * A compiled POSIX extended regular expression (regex(7)), which matches anywhere in a string unless it is
 * anchored. An empty expression matches every string. Expressions and strings end at their first zero byte.
 *
 * The system's matcher determines time, memory and stack. Some expressions take exponential time, and
 * thousands of nested parentheses overflow the stack: accept expressions from trusted sources only.
 *
 * Thread safety: any number of threads may call matches() concurrently.
 */
class DALNIM_API RegExp
{
public:
    static constexpr const char CLASS_NAME[] = "RegExp";

    /**
     * Compiles `exp`.
     * @throws sys::system_error  the number and the message of regcomp(), if `exp` is malformed
     */
    explicit RegExp(const String& exp);
    ~RegExp();

    RegExp(const RegExp&) = delete;
    RegExp& operator=(const RegExp&) = delete;

    /** Returns true if the expression matches `str`; false also if the system's matcher fails. */
    bool matches(const String& str) const;

private:
    RX_Wildcard regexp;
};

}

#endif
