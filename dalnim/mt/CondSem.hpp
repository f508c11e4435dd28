#ifndef DALNIM_MT_CONDSEM_HPP
#define DALNIM_MT_CONDSEM_HPP

#include <dalnim/mt/MutexOps.hpp>
#include <qv/pmx/thread_safety.h>

class RX_Condition;

namespace com::kor::dal::nim::mt {

/**
 * A condition variable together with its lock. In spite of the name there is no count: a signal is lost if no
 * thread is waiting.
 *
 * Exceptions: a failure throws sys::system_error with the error number and the message of its cause; wait()
 * returns false instead.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("mutex") DALNIM_API CondSem
{
public:
    static constexpr const char CLASS_NAME[] = "CondSem";

    /** Uses `mux`, which remains the caller's and must outlive this object. */
    explicit CondSem(const MutexOps& mux);
    /**
     * @param mux  the lock to use; if null and `own` is true, this object creates one
     * @param own  transfers ownership of `mux`: it is deleted with this object. If construction fails, `mux`
     *             remains the caller's
     * @throws sys::system_error  22 (EINVAL) if `mux` is null and `own` is false
     */
    CondSem(MutexOps* mux, bool own = false);
    virtual ~CondSem();

    CondSem(const CondSem&) = delete;
    CondSem& operator=(const CondSem&) = delete;

    /** Blocks until the lock is held. Returns this object, for a MutexHolder to own. */
    const CondSem& acquire() const DALNIM_ACQUIRE() DALNIM_RETURN_CAPABILITY(this);
    /** Unlocks. */
    void release() const DALNIM_RELEASE();
    /** Unlocks. Returns false on failure. */
    bool release(const std::nothrow_t&) const noexcept DALNIM_RELEASE();
    /** Tries to lock without blocking. Returns true if the lock was acquired. */
    bool request() const DALNIM_TRY_ACQUIRE(true);

    /** @name Standard locks */
    /** @{ */
    /**
     * acquire(), release() and request() under the names that std::lock_guard, std::unique_lock and
     * std::scoped_lock require, also for a const lock. A release that fails in the destructor of one of these
     * terminates the process.
     */
    void lock() const DALNIM_ACQUIRE()
    {
        acquire();
    }
    void unlock() const DALNIM_RELEASE()
    {
        release();
    }
    bool try_lock() const DALNIM_TRY_ACQUIRE(true)
    {
        return request();
    }
    /** @} */

    /** Wakes one waiting thread. */
    void signal() const;
    /** Wakes all waiting threads. */
    void broadcast() const;
    /**
     * Releases the lock, waits for a wake-up, and acquires the lock again. The caller must hold the lock.
     * May also return without a wake-up: test in a loop. Never throws.
     * @param ms  maximum duration in milliseconds, on the monotonic clock; 0xFFFFFFFF waits without limit
     * @return true if woken, false at the time-out or on failure
     */
    bool wait(unsigned int ms = 0xFFFFFFFF) const;

private:
    void createCondition();

    bool _own;
    MutexOps* _mop;
    RX_Condition* _cond;
};

}

#endif
