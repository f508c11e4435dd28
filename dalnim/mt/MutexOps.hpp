#ifndef DALNIM_MT_MUTEXOPS_HPP
#define DALNIM_MT_MUTEXOPS_HPP

#include <qv/pmx/api.h>

#include <new>

namespace com::kor::dal::nim::mt {

class CondSem;

/**
 * A lock, as CondSem and Queue work against it. All operations are const, so that a const object
 * can lock what it contains. Failures are sys::system_error with the number and text of the cause.
 */
class DALNIM_API MutexOps
{
public:
    static constexpr const char CLASS_NAME[] = "MutexOps";

    virtual ~MutexOps() = 0;

    /** Blocks until the lock is held; the result is for MutexHolder to take over. */
    virtual const MutexOps& acquire() const = 0;
    /** Unlocks. */
    virtual void release() const = 0;
    /** Unlocks; false on failure. */
    virtual bool release(const std::nothrow_t&) const = 0;
    /** One attempt that does not block; true when the lock was got. */
    virtual bool request() const = 0;

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

    MutexOps(const MutexOps&) = delete;
    MutexOps& operator=(const MutexOps&) = delete;

protected:
    MutexOps() noexcept;

private:
    friend class CondSem;

    /** The `RX_Mutex` beneath the lock, for a condition to bind to. */
    virtual void* os_mux() const = 0;
};

}

#endif
