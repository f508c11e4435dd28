#ifndef QV_RTLAPI_RX_LOCKED_PRIVATE_HPP
#define QV_RTLAPI_RX_LOCKED_PRIVATE_HPP

#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_NullMutex.hpp>

/** Holds a mutex for as long as it lives; or nothing, where an RX_NullMutex stands for one. */
class RX_Locked_
{
public:
    /** Locks `mutex`, which must outlive this object. Raises what the locking raises. */
    explicit RX_Locked_(const RX_Mutex& mutex) : _mutex(&mutex)
    {
        _mutex->lock();
    }
    /** @param mutex  must not be null */
    explicit RX_Locked_(const RX_Mutex* mutex) : RX_Locked_(*mutex) {}
    /** @name In the place of a mutex */
    /** @{ */
    /** Holds nothing. */
    explicit RX_Locked_(const RX_NullMutex&) noexcept : _mutex(nullptr) {}
    explicit RX_Locked_(const RX_NullMutex*) noexcept : _mutex(nullptr) {}
    /** @} */
    RX_Locked_(const RX_Locked_&) = delete;
    RX_Locked_& operator=(const RX_Locked_&) = delete;
    /** Raises RX_Exception when the unlocking fails. */
    ~RX_Locked_() noexcept(false)
    {
        if (_mutex != nullptr) {
            _mutex->unlock();
        }
    }

private:
    const RX_Mutex* _mutex;
};

#endif
