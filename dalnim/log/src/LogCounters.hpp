#ifndef DALNIM_LOG_SRC_LOGCOUNTERS_HPP
#define DALNIM_LOG_SRC_LOGCOUNTERS_HPP

#include <dalnim/log/Statistics.hpp>
#include <dalnim/log/src/LineOutcome.hpp>
#include <dalnim/log/src/RecordOptions.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace com::kor::dal::nim::log {

/**
 * The counters of a logger. Any thread may read them at any time. Those of records that reach the output are
 * written with the lock of the logger held, so that no increment needs to be atomic. Nothing is counted until
 * Statistics::enable() is called.
 */
class LogCounters
{
public:
    /** Counts a line. Requires the lock of the logger. */
    void countLine(Severity severity, std::size_t bytes, LineOutcome outcome) noexcept
    {
        if (__builtin_expect(!isEnabled(), true)) {
            return;
        }
        Counters& own = of(severity);
        if (outcome.isWritten) {
            increase(own.written, 1);
            increase(own.bytes, bytes);
        } else {
            increase(own.rescued, 1);
        }
        if (outcome.rotation != LineOutcome::Rotation::NONE) {
            increase(outcome.rotation == LineOutcome::Rotation::DONE ? rotations : failedRotations, 1);
        }
    }
    /** Counts a record that a limit held back. Requires the lock of the logger. */
    void countHeldBack(Severity severity) noexcept
    {
        if (isEnabled()) {
            increase(of(severity).heldBack, 1);
        }
    }
    /** Counts a record of a statement that threw. */
    void countFailed(Severity severity) noexcept
    {
        if (isEnabled()) {
            of(severity).failed.fetch_add(1, std::memory_order_relaxed);
        }
    }

    /** Stores the numbers. Those of a record that is being written may be incomplete. */
    void read(Statistics& statistics) const noexcept
    {
        for (std::size_t severity = 0; severity < Severity_COUNT; ++severity) {
            const Counters& own = counters[severity];
            statistics.records[severity] = {
                own.written.load(std::memory_order_relaxed), own.bytes.load(std::memory_order_relaxed),
                own.rescued.load(std::memory_order_relaxed), own.failed.load(std::memory_order_relaxed),
                own.heldBack.load(std::memory_order_relaxed)};
        }
        statistics.rotations = rotations.load(std::memory_order_relaxed);
        statistics.failedRotations = failedRotations.load(std::memory_order_relaxed);
    }

private:
    /** Relaxed: counts, which order nothing else. */
    typedef std::atomic<std::uint64_t> Counter;

    struct Counters
    {
        Counter written{0};
        Counter bytes{0};
        Counter rescued{0};
        Counter failed{0};
        Counter heldBack{0};
    };

    static bool isEnabled() noexcept
    {
        return RecordOptions::has(RecordOptions::STATISTICS);
    }
    Counters& of(Severity severity) noexcept
    {
        const auto index = static_cast<unsigned int>(severity);
        return counters[index < Severity_COUNT ? index : 0];
    }
    static void increase(Counter& counter, std::uint64_t by) noexcept
    {
        // Not one atomic step: the lock of the logger is held.
        counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
    }

    Counters counters[Severity_COUNT];
    Counter rotations{0};
    Counter failedRotations{0};
};

}

#endif
