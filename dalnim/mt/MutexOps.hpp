#ifndef DALNIM_MT_MUTEXOPS_HPP
#define DALNIM_MT_MUTEXOPS_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>

#include <new>

namespace com::kor::dal::nim::mt {

class CondSem;

/**
 * The interface of the locks that CondSem and Queue use. All operations are const, so that a const object can
 * use a lock that it contains.
 *
 * Exceptions: a failure throws sys::system_error with the error number and the message of its cause.
 */
class DALNIM_CAPABILITY("mutex") DALNIM_API MutexOps
{
public:
    static constexpr const char CLASS_NAME[] = "MutexOps";

    virtual ~MutexOps() = 0;

    /** Blocks until the lock is held. Returns this lock, for a MutexHolder to own. */
    virtual const MutexOps& acquire() const DALNIM_ACQUIRE() DALNIM_RETURN_CAPABILITY(this) = 0;
    /** Unlocks. */
    virtual void release() const DALNIM_RELEASE() = 0;
    /** Unlocks. Returns false on failure. */
    virtual bool release(const std::nothrow_t&) const DALNIM_RELEASE() = 0;
    /** Tries to lock without blocking. Returns true if the lock was acquired. */
    virtual bool request() const DALNIM_TRY_ACQUIRE(true) = 0;

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

    MutexOps(const MutexOps&) = delete;
    MutexOps& operator=(const MutexOps&) = delete;

protected:
    MutexOps() noexcept;

private:
    friend class CondSem;

    /** Returns the underlying `RX_Mutex`, to which CondSem binds its condition. */
    virtual void* os_mux() const = 0;
};

}

#endif
