#ifndef DALNIM_MT_CRITICALSECTION_HPP
#define DALNIM_MT_CRITICALSECTION_HPP

#include <qv/pmx/mutex.h>

#include <new>

namespace com::kor::dal::nim::sys::internal {
class ForkSafeMutex;
}

namespace com::kor::dal::nim::mt {

/**
 * A plain lock that embeds its mutex: no allocation, no virtual call. It serves the classes that
 * guard their own data. Failures are sys::system_error with the number of the system interface.
 */
class DALNIM_API CriticalSection
{
public:
    static constexpr const char CLASS_NAME[] = "CriticalSection";

    /** A section with the system interface's default, which is not recursive. */
    CriticalSection();
    /** A section that its holder may take again when `recursive` is set, or may not. */
    explicit CriticalSection(bool recursive);
    ~CriticalSection();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    /** Blocks until the lock is held; the result is for MutexHolder to take over. */
    const CriticalSection& acquire() const;
    /** Unlocks. */
    void release() const;
    /** Unlocks; false on failure. */
    bool release(const std::nothrow_t&) const noexcept;
    /** One attempt that does not block; true when the lock was got. */
    bool request() const noexcept;

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
    bool try_lock() const noexcept
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
