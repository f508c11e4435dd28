#ifndef QV_RTLAPI_RX_MUTEX_HPP
#define QV_RTLAPI_RX_MUTEX_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/mutex.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Exception.hpp>

/**
 * A mutex that is not recursive. What the system refuses raises RX_Exception with its number: locking
 * twice on one thread EDEADLK, unlocking what one does not hold EPERM.
 *
 * Thread safety: every operation may be called from any thread.
 */
class DALNIM_API RX_Mutex
{
public:
    RX_Mutex()
    {
        RX_Check(qv_si_mutex_init(&_mutex, nullptr));
    }
    RX_Mutex(const RX_Mutex&) = delete;
    RX_Mutex& operator=(const RX_Mutex&) = delete;
    /** Raises RX_Exception with EBUSY when the mutex is locked. */
    virtual ~RX_Mutex() noexcept(false);

    /** Locks; waits without limit. Raises EDEADLK when the caller holds it. */
    void lock() const
    {
        RX_Check(qv_si_mutex_lock(&_mutex));
    }
    /** Unlocks. Raises EPERM when the caller does not hold it. */
    void unlock() const
    {
        RX_Check(qv_si_mutex_unlock(&_mutex));
    }
    /** Locks if that takes no waiting: 1 when it was locked, 0 when it is held. */
    qv_bool_t tryLock() const;

private:
    friend class RX_Condition;

    mutable si_mutex_t _mutex;
};

#endif
