#ifndef DALNIM_LOG_THROTTLEDSTATEMENT_HPP
#define DALNIM_LOG_THROTTLEDSTATEMENT_HPP

/**
 * @file
 * Log statements that write only some of their records, for places that a failure may reach thousands of
 * times per second:
 *
 *     NIM_LOG_EVERY_N(Severity_WARNING, 1000) << "packet " << number << " is damaged";
 *     NIM_LOG_FIRST_N(Severity_NOTICE, 3) << "the option " << name << " is obsolete";
 *     NIM_LOG_EVERY_MS(Severity_ERROR, 1000) << "no connection to " << host;
 *     NIM_LOG_EVERY_N_TO(module, Severity_WARNING, 1000) << "text";
 *
 * Each place in the source is counted separately, for all threads together (in a template, for each
 * instantiation). Executions that the severity or the module disables are not counted. A statement that
 * writes no record evaluates none of its operands, except the severity and the limit. In everything else they
 * are like the statements of Statement.hpp.
 *
 * A record that follows others which were held back ends in their number, such as " (999 held back)". The
 * last record of NIM_LOG_FIRST_N ends in " (3 of 3, further ones are held back)". If a record is not written
 * because an operand or the logger throws, the number is added to that of the next record.
 */

#include <dalnim/log/Statement.hpp>
#include <dalnim/log/StatementThrottle.hpp>
#include <qv/pmx/api.h>

#include <cstdint>
#include <iosfwd>

namespace com::kor::dal::nim::log {

/** A log statement that a StatementThrottle limits. The macros construct it. */
class DALNIM_API ThrottledStatement : public Statement
{
public:
    /** Checks whether the module logs this severity. */
    ThrottledStatement(Module& statement_module, Severity statement_severity)
        : Statement(statement_module, statement_severity), throttle(nullptr), heldBack(0), lastOf(0)
    {
    }
    ~ThrottledStatement()
    {
        if (heldBack != 0) {
            throttle->addHeldBack(heldBack);
        }
    }

    // Each is called once, if the statement is enabled, and returns true if it writes a record.
    /** See StatementThrottle::admitEvery(). */
    bool isEvery(StatementThrottle& place, std::int64_t n) noexcept
    {
        throttle = &place;
        return place.admitEvery(n, heldBack);
    }
    /** See StatementThrottle::admitFirst(). */
    bool isFirst(StatementThrottle& place, std::int64_t n) noexcept
    {
        bool isLast = false;
        const bool isAdmitted = place.admitFirst(n, isLast);
        lastOf = isLast ? n : 0;
        return isAdmitted;
    }
    /** See StatementThrottle::admitAfter(). */
    bool isAfter(StatementThrottle& place, std::int64_t ms) noexcept
    {
        throttle = &place;
        return place.admitAfter(ms, heldBack);
    }

    /**
     * Appends the number of records that were held back, if any, and passes the record to the module.
     * Exceptions are those of Module::operator+=.
     */
    ThrottledStatement& operator+=(std::ostream& text);

private:
    /** Set if `heldBack` is not 0. */
    StatementThrottle* throttle;
    /** Number of records held back that no record has reported yet. */
    std::uint64_t heldBack;
    /** The limit, if this is the last record of the statement; otherwise 0. */
    std::int64_t lastOf;
};

}

/** The throttle of this place in the source. */
#define NIM_LOG_THROTTLE_                                                                                    \
    ([]() noexcept -> ::com::kor::dal::nim::log::StatementThrottle& {                                        \
        static ::com::kor::dal::nim::log::StatementThrottle nim_log_throttle;                                \
        return nim_log_throttle;                                                                             \
    }())

// A declared name must not be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
/** The common part of the statements: a loop that runs once if a record is written. */
#define NIM_LOG_THROTTLED_(statement, log_module, log_severity, is_admitted, limit)                          \
    for (::com::kor::dal::nim::log::ThrottledStatement statement(log_module,                                 \
                                                                 NIM_LOG_SEVERITY_(log_severity));           \
         statement.open && statement.is_admitted(NIM_LOG_THROTTLE_, limit); statement.open = false)          \
    statement +=                                                                                             \
        statement                                                                                            \
            .header(NIM_LOG_FILE, __LINE__, ::com::kor::dal::nim::log::Statement::baseName(NIM_LOG_FILE))    \
            .os()
// NOLINTEND(bugprone-macro-parentheses)

/** NIM_LOG_TO() for the first record, and then for every `n`-th one. See the top of this file. */
#define NIM_LOG_EVERY_N_TO(log_module, log_severity, n)                                                      \
    NIM_LOG_THROTTLED_(NIM_LOG_NAME_(__LINE__), log_module, log_severity, isEvery, n)
/** NIM_LOG() for the first record, and then for every `n`-th one. See the top of this file. */
#define NIM_LOG_EVERY_N(log_severity, n) NIM_LOG_EVERY_N_TO(com_kor_dal_nim_log_module, log_severity, n)

/** NIM_LOG_TO() for the first `n` records. See the top of this file. */
#define NIM_LOG_FIRST_N_TO(log_module, log_severity, n)                                                      \
    NIM_LOG_THROTTLED_(NIM_LOG_NAME_(__LINE__), log_module, log_severity, isFirst, n)
/** NIM_LOG() for the first `n` records. See the top of this file. */
#define NIM_LOG_FIRST_N(log_severity, n) NIM_LOG_FIRST_N_TO(com_kor_dal_nim_log_module, log_severity, n)

/** NIM_LOG_TO(), at most once in `ms` milliseconds. See the top of this file. */
#define NIM_LOG_EVERY_MS_TO(log_module, log_severity, ms)                                                    \
    NIM_LOG_THROTTLED_(NIM_LOG_NAME_(__LINE__), log_module, log_severity, isAfter, ms)
/** NIM_LOG(), at most once in `ms` milliseconds. See the top of this file. */
#define NIM_LOG_EVERY_MS(log_severity, ms) NIM_LOG_EVERY_MS_TO(com_kor_dal_nim_log_module, log_severity, ms)

#endif
