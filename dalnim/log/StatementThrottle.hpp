#ifndef DALNIM_LOG_STATEMENTTHROTTLE_HPP
#define DALNIM_LOG_STATEMENTTHROTTLE_HPP

#include <qv/pmx/api.h>

#include <atomic>
#include <cstdint>

namespace com::kor::dal::nim::log {

/**
 * Counts the executions of one log statement, and decides which of them write a record. The macros of
 * ThrottledStatement.hpp construct one object for each place in the source, and call one of the operations.
 *
 * Thread safety: any thread may call any operation. None acquires a lock or allocates memory.
 */
class DALNIM_API StatementThrottle
{
public:
    /** Initialised by the compiler, so that a static object needs no guard. */
    constexpr StatementThrottle() noexcept : state(0), due(0) {}

    StatementThrottle(const StatementThrottle&) = delete;
    StatementThrottle& operator=(const StatementThrottle&) = delete;

    /**
     * Admits the first execution, and afterwards each one that `n - 1` refused ones precede. With `n` up to
     * 1, admits all.
     *
     * @param heldBack  receives the number of executions that were refused since the last admitted one
     * @return true if the execution is admitted. Otherwise it has been counted as refused.
     */
    bool admitEvery(std::int64_t n, std::uint64_t& heldBack) noexcept
    {
        const std::uint64_t bound = n > 1 ? static_cast<std::uint64_t>(n) : 1;
        std::uint64_t counted = state.load(std::memory_order_relaxed);
        for (;;) {
            const bool isAdmitted = counted == 0 || counted >= bound;
            if (state.compare_exchange_weak(counted, isAdmitted ? 1 : counted + 1,
                                            std::memory_order_relaxed)) {
                if (isAdmitted) {
                    heldBack = counted == 0 ? 0 : counted - 1;
                }
                return isAdmitted;
            }
        }
    }

    /**
     * Admits the first `n` executions.
     *
     * @param isLast  receives whether the execution is the last one that is admitted
     * @return true if the execution is admitted
     */
    bool admitFirst(std::int64_t n, bool& isLast) noexcept
    {
        const std::uint64_t bound = n > 0 ? static_cast<std::uint64_t>(n) : 0;
        std::uint64_t counted = state.load(std::memory_order_relaxed);
        while (counted < bound) {
            if (state.compare_exchange_weak(counted, counted + 1, std::memory_order_relaxed)) {
                isLast = counted + 1 == bound;
                return true;
            }
        }
        return false;
    }

    /**
     * Admits the first execution, and afterwards the first one that is `ms` milliseconds or more after the
     * last admitted one, on the monotonic clock in the resolution of the kernel's tick (1 to 10 ms). With
     * `ms` up to 0, admits all.
     *
     * @param heldBack  receives the number of executions that were refused since the last admitted one
     * @return true if the execution is admitted. Otherwise it has been counted as refused.
     */
    bool admitAfter(std::int64_t ms, std::uint64_t& heldBack) noexcept;

    /** Adds executions to those that the next admitted one reports as refused. */
    void addHeldBack(std::uint64_t number) noexcept
    {
        state.fetch_add(number, std::memory_order_relaxed);
    }

private:
    // Relaxed: the counts, and the time, are all that threads pass on to each other.

    /**
     * Of admitEvery(): 0 before the first execution, and afterwards one more than the number of executions
     * refused since the last admitted one. Of admitFirst(): the number of admitted executions. Of
     * admitAfter(): the number of executions refused since the last admitted one.
     */
    std::atomic<std::uint64_t> state;
    /** Time in nanoseconds from which admitAfter() admits an execution. */
    std::atomic<std::int64_t> due;
};

}

#endif
