#ifndef DALNIM_LOG_MODULE_HPP
#define DALNIM_LOG_MODULE_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>
#include <dalnim/log/SeverityGate.hpp>
#include <qv/pmx/api.h>

#include <atomic>
#include <iosfwd>

namespace com::kor::dal::nim::log {

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
     * Registers itself with `logInst`, which must outlive it. A name may be taken already: look-ups
     * then find the first module of that name.
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
        return __builtin_expect(loggerGate.passes(codedSeverity), false) && isSelected(codedSeverity);
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

    /** The gate of a logger that is a Write and no subclass of it; an open one for any other. */
    static const SeverityGate& gateOf(const Log& logger);
    /** The rest of the gate: the logger, where it has more to say, and the filter. */
    bool isSelected(Severity codedSeverity);

    /**
     * The cached answer of the filter in the lowest bit, and above it the generation of the filter
     * for which it was computed. One word, so that no two threads can mix their answers.
     */
    std::atomic<std::uint64_t> filterState;
    /** Made by getInstance, and owned by the logger's registration. */
    bool isDynamic;
    const String modName;
    Log& logger;
    /** The logger's own, if that is all that the logger asks; an open one if it decides otherwise. */
    const SeverityGate& loggerGate;
};

}

#include <dalnim/log/Statement.hpp>

#endif
