#ifndef QV_RTLAPI_RX_CONDITION_HPP
#define QV_RTLAPI_RX_CONDITION_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/cond.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_Time.hpp>

/**
 * A condition variable bound to a mutex, which must outlive it. Waits may wake up spuriously: check the
 * condition in a loop. If the system reports an error, operations throw RX_Exception with its error number.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_API RX_Condition
{
public:
    /** Creates a condition that is bound to `mutex`. */
    explicit RX_Condition(RX_Mutex& mutex) : _mup(&mutex._mutex)
    {
        RX_Check(qv_si_cond_init(&_cond, nullptr));
    }
    /** Creates a condition that is bound to `*mutex`; the pointer must not be null. */
    explicit RX_Condition(RX_Mutex* mutex) : RX_Condition(*mutex) {}
    RX_Condition(const RX_Condition&) = delete;
    RX_Condition& operator=(const RX_Condition&) = delete;
    virtual ~RX_Condition() noexcept(false);

    /**
     * Blocks until woken, without a time limit. Releases the mutex, which the caller must hold, and locks it
     * again before returning.
     *
     * @throws RX_Exception  with 1 (`EPERM`) if the calling thread does not hold the mutex
     */
    void wait() const
    {
        RX_Check(qv_si_cond_wait(&_cond, _mup));
    }
    /**
     * Blocks until woken, or until a time-out. Releases the mutex, which the caller must hold, and locks it
     * again before returning. Changes of the wall clock have no effect.
     *
     * @param time  a deadline, or a duration if it is an RX_RelTime
     * @return 1 if woken, 0 if the time-out has expired
     * @throws RX_Exception  with 1 (`EPERM`) if the calling thread does not hold the mutex
     */
    qv_bool_t timedWait(const RX_Time& time) const;

    /** Wakes one waiting thread. Has no effect if none is waiting. */
    void signal() const
    {
        RX_Check(pthread_cond_signal(&_cond.cond));
    }
    /** Wakes all waiting threads. */
    void broadcast() const
    {
        RX_Check(pthread_cond_broadcast(&_cond.cond));
    }

private:
    mutable si_cond_t _cond;
    si_mutex_t* _mup;
};

#endif
