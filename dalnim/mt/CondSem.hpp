#ifndef DALNIM_MT_CONDSEM_HPP
#define DALNIM_MT_CONDSEM_HPP

#include <dalnim/mt/MutexOps.hpp>

class RX_Condition;

namespace com::kor::dal::nim::mt {

/**
 * A condition variable that carries its lock. It holds no count: a signal with nobody waiting is lost.
 *
 * Any thread may call any operation. Failures other than those of a wait are sys::system_error with
 * the number and text of the cause.
 */
class DALNIM_API CondSem
{
public:
    static constexpr const char CLASS_NAME[] = "CondSem";

    /** On a lock that stays the caller's and must outlive this object. */
    explicit CondSem(const MutexOps& mux);
    /**
     * On a lock that is deleted with this object when `own` is set. Without a lock, `own` makes one,
     * and otherwise sys::system_error 22 is thrown.
     */
    CondSem(MutexOps* mux, bool own = false);
    virtual ~CondSem();

    CondSem(const CondSem&) = delete;
    CondSem& operator=(const CondSem&) = delete;

    // The operations of the lock.
    /** Blocks until the lock is held; gives this object. */
    const CondSem& acquire() const;
    /** Unlocks. */
    void release() const;
    /** Unlocks; false on failure. */
    bool release(const std::nothrow_t&) const noexcept;
    /** One attempt at the lock that does not block; true when it was got. */
    bool request() const;

    /** @name Standard locks */
    /** @{ */
    /**
     * For std::lock_guard, std::unique_lock and std::scoped_lock, also of a const lock: acquire(), release()
     * and request() under the names of the standard. A release that fails in their destructor ends the
     * process.
     */
    void lock() const
    {
        acquire();
    }
    void unlock() const
    {
        release();
    }
    bool try_lock() const
    {
        return request();
    }
    /** @} */

    /** Wakes one waiter. */
    void signal() const;
    /** Wakes all waiters. */
    void broadcast() const;
    /**
     * Waits for a wake-up; the caller holds the lock, and holds it again on return. It may also
     * return without one: test in a loop. Never throws.
     * @param ms milliseconds; 0xFFFFFFFF waits without limit
     * @return false at the time-out, and for a failure
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
