#ifndef DALNIM_LOG_STATEMENT_HPP
#define DALNIM_LOG_STATEMENT_HPP

/**
 * @file
 * The log statements. Each is a single statement, safe in an unbraced `if` or `else`, and evaluates none of
 * its operands if it is disabled:
 *
 *     NIM_LOG(Severity_WARNING) << "disk " << name << " is " << percent << "% full";
 *     NIM_LOG_TO(module, Severity_INFO) << "text";
 *     NIM_LOG_TRAPPED(Severity_WARNING, exception, "message");
 *
 * The first and the last use the variable `com_kor_dal_nim_log_module` that is visible at the statement: the
 * global one, unless the source has declared its own in its namespace. Exceptions from writing the record
 * leave the statement, as does `std::bad_alloc` if memory runs out for its text.
 *
 * Not for signal handlers, which may have interrupted the allocator. A statement in a handler that
 * interrupted another statement of its thread is rejected and counted: see Control::getRefusedStatements().
 */

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

/** One log statement: its severity check and, if it is enabled, its record. The macros construct it. */
class DALNIM_API Statement
{
public:
    /** Checks whether the module logs this severity. */
    Statement(Module& statement_module, Severity statement_severity)
        : module(statement_module), open(statement_module.isSeveritySatisfied(statement_severity)),
          severity(statement_severity), record(nullptr)
    {
    }
    ~Statement()
    {
        // Most statements are disabled.
        if (record != nullptr) {
            end();
        }
    }

    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /**
     * Starts the record. Called once, if the statement is enabled.
     * @param file          source file; only the pointer is stored
     * @param fileBaseName  baseName() of it, or null to have that determined when the record is formatted
     */
    Header& header(const char* file, unsigned int line, std::string_view fileBaseName = {});

    /** Returns the part of a path after the last "/". The compiler evaluates it for a literal. */
    static std::string_view baseName(const char* path) noexcept
    {
        const char* const slash = __builtin_strrchr(path, '/');
        return slash == nullptr ? path : slash + 1;
    }

    /** The module that logs the record; outlives the statement. */
    Module& module;
    /** Whether the operands are still to be evaluated. The macros set it to false afterwards. */
    bool open;

protected:
    /**
     * Replaces trailing white space of the record's text by `addition`, whatever the state of its stream is.
     * Requires header().
     * @throws std::bad_alloc if memory runs out
     */
    void appendToText(std::string_view addition);

private:
    void end() noexcept;

    const Severity severity;
    Header* record;
    /** Storage for a record of its own if the thread's is in use, by an enclosing statement for example. */
    alignas(Header) unsigned char own[sizeof(Header)];
};

}

/** The source file of the records. A source may define it before it includes this header. */
#ifndef NIM_LOG_FILE
#define NIM_LOG_FILE __FILE__
#endif

/** Joins two tokens after their expansion. */
#define NIM_LOG_JOIN_(a, b) a##b
/** The name of a line's Statement, which hides no variable of the caller. */
#define NIM_LOG_NAME_(line) NIM_LOG_JOIN_(nim_log_statement_, line)

/**
 * Evaluates a severity whose enumerators need no namespace. A statement expression, because a lambda could
 * not use structured bindings of the enclosing function.
 */
#define NIM_LOG_SEVERITY_(severity)                                                                          \
    __extension__({                                                                                          \
        using ::com::kor::dal::nim::log::Severity_NONE;                                                      \
        using ::com::kor::dal::nim::log::Severity_TRACE;                                                     \
        using ::com::kor::dal::nim::log::Severity_DEBUG;                                                     \
        using ::com::kor::dal::nim::log::Severity_INFO;                                                      \
        using ::com::kor::dal::nim::log::Severity_NOTICE;                                                    \
        using ::com::kor::dal::nim::log::Severity_WARNING;                                                   \
        using ::com::kor::dal::nim::log::Severity_ERROR;                                                     \
        using ::com::kor::dal::nim::log::Severity_FATAL;                                                     \
        (severity);                                                                                          \
    })

// A declared name must not be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
/** The common part of the statements: a loop that runs once if the statement is enabled. */
#define NIM_LOG_STATEMENT_(statement, log_module, log_severity)                                              \
    for (::com::kor::dal::nim::log::Statement statement(log_module, NIM_LOG_SEVERITY_(log_severity));        \
         statement.open; statement.open = false)                                                             \
    statement.module += statement.header(NIM_LOG_FILE, __LINE__,                                             \
                                         ::com::kor::dal::nim::log::Statement::baseName(NIM_LOG_FILE))
// NOLINTEND(bugprone-macro-parentheses)

/** Logs to a module with a severity; the text is inserted by `<<`. See the top of this file. */
#define NIM_LOG_TO(log_module, log_severity)                                                                 \
    NIM_LOG_STATEMENT_(NIM_LOG_NAME_(__LINE__), log_module, log_severity).os()

/** Logs to the module that is visible here, with a severity; the text is inserted by `<<`. */
#define NIM_LOG(log_severity) NIM_LOG_TO(com_kor_dal_nim_log_module, log_severity)

/** Logs a message and an exception to the module that is visible here; see log::Header::insertTrapped(). */
#define NIM_LOG_TRAPPED(log_severity, exception, message)                                                    \
    NIM_LOG_STATEMENT_(NIM_LOG_NAME_(__LINE__), com_kor_dal_nim_log_module, log_severity)                    \
        .insertTrapped(exception, message)

#include <dalnim/log/ThrottledStatement.hpp>

#endif
