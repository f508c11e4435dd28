#ifndef DALNIM_MT_CRITICALSECTION_HPP
#define DALNIM_MT_CRITICALSECTION_HPP

#include <qv/pmx/mutex.h>
#include <qv/pmx/thread_safety.h>

#include <new>

namespace com::kor::dal::nim::sys::internal {
class ForkSafeMutex;
}

namespace com::kor::dal::nim::mt {

/**
 * A lock that embeds its mutex, without allocation and virtual calls, for classes that guard their own data.
 *
 * Exceptions: a failure throws sys::system_error with the error number of the system interface.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("mutex") DALNIM_API CriticalSection
{
public:
    static constexpr const char CLASS_NAME[] = "CriticalSection";

    /** Constructs a section that is not recursive. */
    CriticalSection();
    /** @param recursive  whether the thread that holds the section may acquire it again */
    explicit CriticalSection(bool recursive);
    ~CriticalSection();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    /** Blocks until the lock is held. Returns this lock, for a MutexHolder to own. */
    const CriticalSection& acquire() const DALNIM_ACQUIRE() DALNIM_RETURN_CAPABILITY(this);
    /** Unlocks. */
    void release() const DALNIM_RELEASE();
    /** Unlocks. Returns false on failure. */
    bool release(const std::nothrow_t&) const noexcept DALNIM_RELEASE();
    /** Tries to lock without blocking. Returns true if the lock was acquired. */
    bool request() const noexcept DALNIM_TRY_ACQUIRE(true);

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
    bool try_lock() const noexcept DALNIM_TRY_ACQUIRE(true)
    {
        return request();
    }
    /** @} */

private:
    friend class sys::internal::ForkSafeMutex;

    mutable si_mutex_t _mu;
};

}

#endif
