#ifndef QV_RTLAPI_RX_MUTEX_HPP
#define QV_RTLAPI_RX_MUTEX_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/mutex.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Exception.hpp>

/**
 * A non-recursive mutex that checks for errors.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("mutex") DALNIM_API RX_Mutex
{
public:
    /**
     * Creates an unlocked mutex.
     *
     * @throws RX_Exception  if the system cannot create it, with its error number
     */
    RX_Mutex()
    {
        RX_Check(qv_si_mutex_init(&_mutex, nullptr));
    }
    RX_Mutex(const RX_Mutex&) = delete;
    RX_Mutex& operator=(const RX_Mutex&) = delete;
    /** @throws RX_Exception  with 16 (`EBUSY`) if the mutex is locked */
    virtual ~RX_Mutex() noexcept(false);

    /**
     * Locks the mutex. Blocks while another thread holds it, without a time limit.
     *
     * @throws RX_Exception  with 35 (`EDEADLK`) if the calling thread holds it already
     */
    void lock() const DALNIM_ACQUIRE()
    {
        RX_Check(qv_si_mutex_lock(&_mutex));
    }
    /**
     * Unlocks the mutex.
     *
     * @throws RX_Exception  with 1 (`EPERM`) if the calling thread does not hold it
     */
    void unlock() const DALNIM_RELEASE()
    {
        RX_Check(qv_si_mutex_unlock(&_mutex));
    }
    /**
     * Locks the mutex if no thread holds it. Does not block.
     *
     * @return 1 if it was locked, 0 if a thread holds it
     */
    qv_bool_t tryLock() const DALNIM_TRY_ACQUIRE(1);

private:
    friend class RX_Condition;

    mutable si_mutex_t _mutex;
};

#endif
