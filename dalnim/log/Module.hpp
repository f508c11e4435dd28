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
 * A named source of log records, and the gate that each log statement passes first.
 *
 * The gate may be asked from any thread. Making modules takes no lock: it is for start-up, or for
 * callers that serialise themselves. Whoever destroys a module that is registered calls
 * Write::unregisterModule first.
 */
class DALNIM_API Module
{
public:
    static constexpr const char CLASS_NAME[] = "Module";
    /** "global". */
    static const char DEFAULT_NAME[];
    /** The module of that name, registered with the default logger. It is never destroyed. */
    static Module& DEFAULT_INSTANCE;

    /**
     * Registers itself with `logInst`, which must outlive it, and which may be under construction as long
     * as isSeveritySatisfied() is not called. A name may be taken already: look-ups then find the first
     * module of that name.
     */
    Module(const String& name, Log& logInst);
    ~Module();

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /** The registered module of that name, or a new one that the logger owns. */
    static Module& getInstance(const String& name, Log& logInst);

    /**
     * The gate: whether a statement of this severity may produce a record. The logger decides first;
     * the module filter silences nothing above WARNING.
     */
    bool isSeveritySatisfied(Severity codedSeverity)
    {
        // Most statements are refused here, where they stand; what makes a record lies out of the way.
        return __builtin_expect(loggerGate.load(std::memory_order_relaxed)->passes(codedSeverity), false)
               && isSelected(codedSeverity);
    }

    /**
     * Hands a record to the logger. `header` must be the Header of the statement: throws
     * `std::invalid_argument`, "Supplied std::ostream is not an NIM Log Header.", otherwise.
     */
    Module& operator+=(std::ostream& header);

    /** The name that it was made with. */
    const String& getName() const noexcept
    {
        return modName;
    }
    /** The logger as its control interface. */
    Control& control() noexcept;

private:
    friend class ModuleRegistration;

    /** Returns the gate of a logger whose class is Write, not a subclass of it; null for any other logger. */
    static const SeverityGate* gateOf(const Log& logger) noexcept;
    /** Increments the number of refused statements of a Write; does nothing for any other logger. */
    static void countRefused(Log& logger) noexcept;
    /** Binds this module to its logger's gate, or to an open one, and returns it. Threads may do so
     * concurrently. */
    const SeverityGate& bindGate() noexcept;
    /** The rest of the gate: the logger, where it has more to say, and the filter. */
    bool isSelected(Severity codedSeverity);
    /**
     * Refuses and counts a statement of a signal handler that has interrupted another statement of its
     * thread.
     */
    bool isRefused() noexcept;

    /** A filterState that was never computed: above the lowest bit, more than any generation. */
    static constexpr std::uint64_t NEVER_COMPUTED = ~std::uint64_t(0);

    /**
     * The cached answer of the filter in the lowest bit, and above it the generation of the filter
     * for which it was computed. One word, so that no two threads can mix their answers.
     */
    std::atomic<std::uint64_t> filterState;
    /** The registration that getInstance() made a dynamic module for; null for any other module. */
    const ModuleRegistration* owner;
    const String modName;
    Log& logger;
    /**
     * The logger's own gate if it decides by that alone, otherwise an open one; until the first question,
     * the open gate of a module that is not bound yet. A module may be made while its logger is under
     * construction, when it cannot be known which class will decide.
     */
    std::atomic<const SeverityGate*> loggerGate;
};

}

#include <dalnim/log/Statement.hpp>

#endif
