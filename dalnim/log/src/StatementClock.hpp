#ifndef DALNIM_LOG_SRC_STATEMENTCLOCK_HPP
#define DALNIM_LOG_SRC_STATEMENTCLOCK_HPP

#include <dalnim/log/Header.hpp>
#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>
#include <qv/pmx/thread_safety.h>

#include <atomic>
#include <cstdint>

namespace com::kor::dal::nim::log {

/**
 * Reads the time of log statements: the second and, while a logger needs it, also the fraction, both from one
 * reading of the clock. Any thread may call any operation.
 *
 * A statement calls the current reading function through a pointer. While no logger needs the fraction, this
 * is time() itself, so that such a statement executes no instruction for the choice.
 */
class StatementClock
{
public:
    StatementClock() = delete;

    static void read(Header::Time& time) noexcept
    {
        // Acquires from release() that no logger needs the fraction.
        function.load(std::memory_order_acquire)(&time.seconds);
    }
    /**
     * Returns the microseconds of a time; 0 if they were not read, because the statement began before a
     * logger needed them.
     */
    static unsigned int microseconds(const Header::Time& time) noexcept;

    /** Has statements read the fraction until release() has been called as often as this. */
    static void acquire() noexcept DALNIM_EXCLUDES(mutex);
    static void release() noexcept DALNIM_EXCLUDES(mutex);

    /** Acquired after the lock of a logger. fork() acquires it. No other lock is acquired under it. */
    static sys::internal::ForkSafeMutex mutex;

private:
    typedef Time_t (*Function)(Time_t* seconds);

    /** Stores both members of the Header::Time that begins with `seconds`. */
    static Time_t readFraction(Time_t* seconds) noexcept;

    static std::atomic<Function> function;
    /** Number of loggers that need the fraction. */
    static unsigned int users DALNIM_GUARDED_BY(mutex);
    /**
     * Number of times that a first logger has needed the fraction. Stored with each fraction, because the
     * cached record of a thread still contains its last fraction when a later statement reads only the
     * second.
     */
    static std::atomic<std::uint32_t> generation;
};

}

#endif
