#ifndef QV_RTLAPI_RX_LOCKED_PRIVATE_HPP
#define QV_RTLAPI_RX_LOCKED_PRIVATE_HPP

#include <qv/pmx/thread_safety.h>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_NullMutex.hpp>

/** Locks a mutex for the lifetime of this object. With an RX_NullMutex, it locks nothing. */
class DALNIM_SCOPED_CAPABILITY RX_Locked_
{
public:
    /**
     * Locks a mutex.
     *
     * @param mutex  must outlive this object
     * @throws RX_Exception  if RX_Mutex::lock() throws
     */
    explicit RX_Locked_(const RX_Mutex& mutex) DALNIM_ACQUIRE(mutex) : _mutex(&mutex)
    {
        _mutex->lock();
    }
    /**
     * Locks a mutex.
     *
     * @param mutex  must not be null, and must outlive this object
     * @throws RX_Exception  if RX_Mutex::lock() throws
     */
    explicit RX_Locked_(const RX_Mutex* mutex) DALNIM_ACQUIRE(mutex) : RX_Locked_(*mutex) {}
    /** @name Without a mutex */
    /** @{ */
    /** Locks nothing. */
    explicit RX_Locked_(const RX_NullMutex&) noexcept : _mutex(nullptr) {}
    explicit RX_Locked_(const RX_NullMutex*) noexcept : _mutex(nullptr) {}
    /** @} */
    RX_Locked_(const RX_Locked_&) = delete;
    RX_Locked_& operator=(const RX_Locked_&) = delete;
    /**
     * Unlocks the mutex.
     *
     * @throws RX_Exception  if RX_Mutex::unlock() throws
     */
    ~RX_Locked_() noexcept(false) DALNIM_RELEASE()
    {
        if (_mutex != nullptr) {
            _mutex->unlock();
        }
    }

private:
    const RX_Mutex* _mutex;
};

#endif
