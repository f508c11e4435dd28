#ifndef DALNIM_SYS_INTERNAL_SRC_FORKSAFEMUTEX_HPP
#define DALNIM_SYS_INTERNAL_SRC_FORKSAFEMUTEX_HPP

#include <qv/pmx/cond.h>
#include <qv/pmx/mutex.h>
#include <qv/pmx/thread_safety.h>

#include <ctime>

namespace com::kor::dal::nim::sys::internal {

/**
 * A mutex that works in the child of a fork, too.
 *
 * The child has the forking thread alone. A mutex that another thread held would stay locked there, and one
 * that the forking thread held could not be unlocked, since its owner is the thread ID of the parent. So
 * fork() acquires the mutex first, the parent unlocks it afterwards, and the child reinitialises it. The
 * class registers no handlers itself: its users call the three operations of `Hold` from theirs, in the order
 * of their locks.
 *
 * It is constant-initialised and needs no destructor, so that it can be used before any constructor has run
 * and until the process has ended.
 */
class DALNIM_CAPABILITY("mutex") ForkSafeMutex
{
public:
    /**
     * How the forking thread holds one mutex, from before the fork until after it. Guarded by that mutex, or
     * by another one that serialises forks.
     */
    class Hold
    {
    public:
        constexpr Hold() noexcept = default;

        /**
         * Acquires the mutex before the fork.
         * @param deadline  on the monotonic clock; null waits without limit
         * @return false if the deadline has passed: another thread still holds the mutex
         */
        bool prepare(si_mutex_t& held, const std::timespec* deadline) noexcept;
        /** Unlocks the mutex if prepare() has locked it. */
        void afterForkInParent(si_mutex_t& held) noexcept;
        /**
         * Reinitialises the mutex, whatever its state, also without prepare(). It is unlocked afterwards,
         * unless prepare() has found that the forking thread already held it; a recursive mutex is always
         * unlocked.
         */
        void afterForkInChild(si_mutex_t& held, bool isRecursive) noexcept;

    private:
        enum class State : unsigned char {
            /** The forking thread does not hold the mutex. */
            NONE,
            /** Locked by prepare(). */
            ACQUIRED,
            /** Locked by the forking thread before the fork. */
            HELD_BEFORE
        };

        State state = State::NONE;
    };

    constexpr explicit ForkSafeMutex(bool isRecursive) noexcept
        : mutex(isRecursive ? si_mutex_t{PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP}
                            : si_mutex_t{PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP}),
          recursive(isRecursive)
    {
    }

    ForkSafeMutex(const ForkSafeMutex&) = delete;
    ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;

    /** Locks; EDEADLK if the calling thread holds a mutex that is not recursive. */
    qv_err_t lock() noexcept DALNIM_TRY_ACQUIRE(0)
    {
        return qv_si_mutex_lock(&mutex);
    }
    /** Unlocks; EPERM if the calling thread does not hold the mutex. */
    qv_err_t unlock() noexcept DALNIM_RELEASE()
    {
        return qv_si_mutex_unlock(&mutex);
    }

    /**
     * Unlocks, waits for a wake-up of `condition`, and locks again. A cancellation point.
     * @param deadline  on the clock of the condition
     * @return ETIMEDOUT if the deadline has passed
     */
    qv_err_t waitUntil(si_cond_t& condition, const std::timespec& deadline) DALNIM_REQUIRES(this)
    {
        return pthread_cond_timedwait(&condition.cond, &mutex.mutex, &deadline);
    }

    // To be called by fork handlers: see Hold.
    bool prepare(const std::timespec* deadline = nullptr) noexcept
    {
        return hold.prepare(mutex, deadline);
    }
    void afterForkInParent() noexcept
    {
        hold.afterForkInParent(mutex);
    }
    void afterForkInChild() noexcept
    {
        hold.afterForkInChild(mutex, recursive);
    }

    /** Returns the mutex of an mt::CriticalSection, for a Hold. */
    template <class Section>
    static si_mutex_t& of(const Section& section) noexcept
    {
        return section._mu;
    }

private:
    si_mutex_t mutex;
    const bool recursive;
    Hold hold;
};

/** Holds a ForkSafeMutex for a scope. If locking fails, it holds nothing. */
class DALNIM_SCOPED_CAPABILITY ForkSafeLock
{
public:
    // Locking fails only if the calling thread holds the mutex already.
    DALNIM_NO_LOCK_ANALYSIS explicit ForkSafeLock(ForkSafeMutex& locked) noexcept DALNIM_ACQUIRE(locked)
        : mutex(locked), isOwner(locked.lock() == 0)
    {
    }
    ~ForkSafeLock() DALNIM_RELEASE()
    {
        if (isOwner) {
            mutex.unlock();
        }
    }

    ForkSafeLock(const ForkSafeLock&) = delete;
    ForkSafeLock& operator=(const ForkSafeLock&) = delete;

private:
    ForkSafeMutex& mutex;
    const bool isOwner;
};

}

#endif
