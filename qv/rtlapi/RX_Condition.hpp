#ifndef QV_RTLAPI_RX_CONDITION_HPP
#define QV_RTLAPI_RX_CONDITION_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/cond.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_Time.hpp>

/**
 * A condition variable bound to a mutex, which must outlive it. A wait may end without a wake-up:
 * test in a loop. Failures raise RX_Exception with the system's number.
 *
 * Thread safety: every operation may be called from any thread.
 */
class DALNIM_API RX_Condition
{
public:
    /** A condition on `mutex`. */
    explicit RX_Condition(RX_Mutex& mutex) : _mup(&mutex._mutex)
    {
        RX_Check(qv_si_cond_init(&_cond, nullptr));
    }
    /** The same; `mutex` must not be null. */
    explicit RX_Condition(RX_Mutex* mutex) : RX_Condition(*mutex) {}
    RX_Condition(const RX_Condition&) = delete;
    RX_Condition& operator=(const RX_Condition&) = delete;
    virtual ~RX_Condition() noexcept(false);

    /** Waits for a wake-up. The caller holds the mutex, and holds it again afterwards. */
    void wait() const
    {
        RX_Check(qv_si_cond_wait(&_cond, _mup));
    }
    /**
     * Waits for a wake-up, at most until `time`, or for `time` when that is an RX_RelTime. The caller
     * holds the mutex, and holds it again afterwards. A change of the wall clock plays no part.
     *
     * @return 1 when woken, 0 at the time-out
     */
    qv_bool_t timedWait(const RX_Time& time) const;

    /** Wakes one waiting thread. Nothing is kept for one that comes later. */
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
