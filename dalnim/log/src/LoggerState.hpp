#ifndef DALNIM_LOG_SRC_LOGGERSTATE_HPP
#define DALNIM_LOG_SRC_LOGGERSTATE_HPP

#include <dalnim/log/Write.hpp>
#include <dalnim/log/src/ForkHandlers.hpp>
#include <dalnim/log/src/LogCounters.hpp>
#include <dalnim/log/src/ModuleLimits.hpp>
#include <dalnim/log/src/RecordOptions.hpp>

#include <atomic>
#include <cstddef>

namespace com::kor::dal::nim::log {

/**
 * The state of a Write that is not stored in the Write itself: users derive from that class and embed its
 * objects, so that its size must not change. A Write stores it as its fork entry.
 */
class LoggerState final : public ForkEntry
{
public:
    static constexpr std::size_t CACHE_LINE = 64;

    explicit LoggerState(const mt::CriticalSection& locked) noexcept : ForkEntry(Kind::LOGGER, locked) {}

    /** Returns true if `limits` contains any. Requires no lock. */
    bool isLimited() const noexcept
    {
        return hasLimits.load(std::memory_order_relaxed);
    }
    /** Follows a change of `limits`, with the lock of the logger held. */
    void limitsHaveChanged() noexcept
    {
        hasLimits.store(!limits.limits().empty(), std::memory_order_relaxed);
        if (!limits.limits().empty()) {
            RecordOptions::set(RecordOptions::LIMITS, true);
        }
    }

    /** Guarded by the lock of the logger. */
    ModuleLimits limits;

private:
    /** Relaxed: the limits themselves are read under the lock. */
    std::atomic<bool> hasLimits{false};

public:
    /** On cache lines of their own: other threads read `hasLimits` without a lock. */
    alignas(CACHE_LINE) LogCounters counters;
    /**
     * The severity of the record that log(const String&) writes; NONE if a subclass calls that directly.
     * Guarded by the lock of the logger.
     */
    Severity currentSeverity = Severity_NONE;

    /** Sets `currentSeverity` for a scope. */
    class SeverityScope
    {
    public:
        SeverityScope(LoggerState& logger, Severity severity) noexcept : current(logger.currentSeverity)
        {
            current = severity;
        }
        ~SeverityScope()
        {
            current = Severity_NONE;
        }
        SeverityScope(const SeverityScope&) = delete;
        SeverityScope& operator=(const SeverityScope&) = delete;

    private:
        Severity& current;
    };
};

inline LoggerState& Write::state() const noexcept
{
    return static_cast<LoggerState&>(*forkEntry);
}

}

#endif
