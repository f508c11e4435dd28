#ifndef DALNIM_LOG_MODULE_HPP
#define DALNIM_LOG_MODULE_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <dalnim/log/SeverityGate.hpp>
#include <qv/pmx/api.h>

#include <atomic>
#include <iosfwd>

namespace com::kor::dal::nim::log {

class ModuleRegistration;

/**
 * A named source of log records. Each log statement first asks its module whether its severity is enabled.
 *
 * Thread safety: isSeveritySatisfied(), operator+=, getName() and control() may be called by any thread.
 * Modules are constructed, and getInstance() is called, without a lock: at start-up, or by callers that
 * serialise these calls. The owner of a registered module must call Write::unregisterModule() before it
 * destroys the module.
 */
class DALNIM_API Module
{
public:
    static constexpr const char CLASS_NAME[] = "Module";
    /** "global". */
    static const char DEFAULT_NAME[];
    /** The module with that name, registered with the default logger. Never destroyed. */
    static Module& DEFAULT_INSTANCE;

    /**
     * Registers the module with its logger.
     *
     * @param name     the name. If it is in use, lookups find the first module with this name.
     * @param logInst  the logger; not owned, must outlive the module. It may be under construction until
     *                 isSeveritySatisfied() is first called.
     */
    Module(const String& name, Log& logInst);
    ~Module();

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /**
     * Returns a registered module, or registers a new one, which the logger owns.
     *
     * @param name     the name of the module
     * @param logInst  the logger
     * @return the first registered module with this name
     */
    static Module& getInstance(const String& name, Log& logInst);

    /**
     * Returns true if a statement with this severity is enabled: by the logger, and up to WARNING also by the
     * module filter. Returns false in a signal handler that interrupted another statement of the same thread,
     * and increments Control::getRefusedStatements().
     */
    bool isSeveritySatisfied(Severity codedSeverity)
    {
        // Most statements are disabled and return here, inline.
        return __builtin_expect(loggerGate.load(std::memory_order_relaxed)->passes(codedSeverity), false)
               && isSelected(codedSeverity);
    }

    /**
     * Passes a record to the logger.
     *
     * @param header  the Header of the statement, which contains the text
     * @return this module
     * @throws std::invalid_argument  "Supplied std::ostream is not an NIM Log Header."
     * @throws std::bad_alloc  if memory ran out while the text was inserted; nothing is written
     * @throws std::exception  any exception of the logger
     */
    Module& operator+=(std::ostream& header);

    /** Returns the name that was passed to the constructor. */
    const String& getName() const noexcept
    {
        return modName;
    }
    /** Returns the control interface of the logger. */
    Control& control() noexcept;

private:
    friend class ModuleRegistration;

    /** Returns the gate of a logger whose class is Write, not a subclass of it; null for any other logger. */
    static const SeverityGate* gateOf(const Log& logger) noexcept;
    /** Increments the number of refused statements of a Write; does nothing for any other logger. */
    static void countRefused(Log& logger) noexcept;
    /** Counts a record that was not passed to a Write; does nothing for any other logger. */
    __attribute__((visibility("hidden"))) static void countFailed(Log& logger, Severity severity) noexcept;
    /**
     * Binds this module to its logger's gate, or to an open one, and returns it. Threads may do so
     * concurrently.
     */
    const SeverityGate& bindGate() noexcept;
    /** Checks the rest: signal handlers, a logger that does not decide by its gate alone, and the filter. */
    bool isSelected(Severity codedSeverity);
    /**
     * Returns true, and counts the statement as refused, in a signal handler that interrupted another
     * statement of the same thread. Requires StatementScope::isActive().
     */
    bool isRefused() noexcept;

    /** Initial value of `filterState`: its generation is greater than any real one. */
    static constexpr std::uint64_t NEVER_COMPUTED = ~std::uint64_t(0);

    /**
     * Cached result of the filter (lowest bit) and the generation of the filter that it belongs to (other
     * bits). A single word, so that threads cannot combine the result of one generation with another
     * generation. Relaxed: see isSelected().
     */
    std::atomic<std::uint64_t> filterState;
    /** The registration that owns a module created by getInstance(); null for any other module. */
    const ModuleRegistration* owner;
    const String modName;
    Log& logger;
    /**
     * The logger's gate if the logger decides by it alone, otherwise an open gate. Bound by the first check,
     * not by the constructor: the logger may be under construction then, and its final class unknown.
     * Relaxed: see bindGate().
     */
    std::atomic<const SeverityGate*> loggerGate;
};

}

#include <dalnim/log/Statement.hpp>

#endif
