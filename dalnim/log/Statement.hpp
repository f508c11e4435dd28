#ifndef DALNIM_LOG_STATEMENT_HPP
#define DALNIM_LOG_STATEMENT_HPP

/**
 * @file
 * The log statements. Each is one statement, safe in an unbraced `if` or `else`, and evaluates
 * nothing behind a closed gate:
 *
 *     NIM_LOG(Severity_WARNING) << "disk " << name << " is " << percent << "% full";
 *     NIM_LOG_TO(module, Severity_INFO) << "text";
 *     NIM_LOG_TRAPPED(Severity_WARNING, exception, "message");
 *
 * The first and the last use the variable `com_kor_dal_nim_log_module` that is visible where they
 * stand: the global one, unless a source has declared one of its own in its namespace. What the
 * record's output raises leaves the statement, as does the `std::bad_alloc` of a text without memory.
 *
 * Not for signal handlers, which may have interrupted the allocator. A statement in a handler that
 * interrupted another statement of its thread is refused and counted: see Control::getRefusedStatements().
 */

#include <dalnim/log/Common.hpp>
#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

/** The gate of one statement, open for one round, and the record behind it. */
class DALNIM_API Statement
{
public:
    /** Asks the gate of the module. */
    Statement(Module& statement_module, Severity statement_severity)
        : module(statement_module), open(statement_module.isSeveritySatisfied(statement_severity)),
          severity(statement_severity), record(nullptr)
    {
    }
    ~Statement()
    {
        // Most statements are refused, and end here.
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

    /** The module that the record goes to, which outlives the statement. */
    Module& module;
    /** Whether the round is still to come. The macros set it to false behind it. */
    bool open;

private:
    void end() noexcept;

    const Severity severity;
    Header* record;
    /** For a record of its own, where the thread's is in use: by a statement around this one, say. */
    alignas(Header) unsigned char own[sizeof(Header)];
};

}

/** The source that a record names; a file may define it before it includes this one. */
#ifndef NIM_LOG_FILE
#define NIM_LOG_FILE __FILE__
#endif

/** Two words as one, behind their expansion. */
#define NIM_LOG_JOIN_(a, b) a##b
/** A name for the Statement of a line, which no variable of the caller hides. */
#define NIM_LOG_NAME_(line) NIM_LOG_JOIN_(nim_log_statement_, line)

/**
 * Evaluates a severity where the enumerators need no namespace. A block that is an expression, since
 * a lambda could not use the structured bindings of the function around it.
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

// A name that is declared cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
/** What the statements are made of: one round of a loop, if the gate is open. */
#define NIM_LOG_STATEMENT_(statement, log_module, log_severity)                                              \
    for (::com::kor::dal::nim::log::Statement statement(log_module, NIM_LOG_SEVERITY_(log_severity));        \
         statement.open; statement.open = false)                                                             \
    statement.module += statement.header(NIM_LOG_FILE, __LINE__,                                             \
                                         ::com::kor::dal::nim::log::Statement::baseName(NIM_LOG_FILE))
// NOLINTEND(bugprone-macro-parentheses)

/** Logs to a module, at a severity; insert the text behind it by `<<`. See the top of this file. */
#define NIM_LOG_TO(log_module, log_severity)                                                                 \
    NIM_LOG_STATEMENT_(NIM_LOG_NAME_(__LINE__), log_module, log_severity).os()

/** Logs to the module that is visible here, at a severity; insert the text behind it by `<<`. */
#define NIM_LOG(log_severity) NIM_LOG_TO(com_kor_dal_nim_log_module, log_severity)

/**
 * Logs an exception behind a message to the module that is visible here; see log::Header::insertTrapped().
 */
#define NIM_LOG_TRAPPED(log_severity, exception, message)                                                    \
    NIM_LOG_STATEMENT_(NIM_LOG_NAME_(__LINE__), com_kor_dal_nim_log_module, log_severity)                    \
        .insertTrapped(exception, message)

#endif
