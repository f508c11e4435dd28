#ifndef QV_RTLAPI_SRC_IDLEWORKERS_HPP
#define QV_RTLAPI_SRC_IDLEWORKERS_HPP

#include <forward_list>

#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Mutex.hpp>

namespace qv {

/**
 * The idle workers of a server queue, and the means to wake as few of them as are needed.
 *
 * An idle worker spins for a few microseconds, unless another one does, and then parks: it blocks on a
 * condition variable of its own. Parked workers form a LIFO stack, so that the most recently active thread is
 * reused. The spinning worker is woken first, because that takes no system call. As it may be preempted, its
 * wake-up counts only once it has responded: see deliver().
 *
 * Thread safety: each operation declares whether it requires the lock that was passed to the constructor.
 */
class IdleWorkers
{
public:
    class Waiter;

    /** A worker that wakeFor() has woken, if any. The caller must pass it to deliver(). */
    struct Wakeup
    {
        Waiter* waiter = nullptr;
        bool mustRespond = false;

        explicit operator bool() const noexcept
        {
            return waiter != nullptr;
        }
    };

    /** @param mutex  the lock that guards this object; must outlive it */
    explicit IdleWorkers(RX_Mutex& mutex);
    IdleWorkers(const IdleWorkers&) = delete;
    IdleWorkers& operator=(const IdleWorkers&) = delete;
    ~IdleWorkers() noexcept(false);

    /** Returns the lock that guards this object. */
    const RX_Mutex& mutex() const noexcept DALNIM_RETURN_CAPABILITY(_mutex)
    {
        return _mutex;
    }

    /**
     * Returns the wait node of a new worker, which remains in the ownership of this object.
     *
     * @throws std::bad_alloc  if memory runs out
     * @throws RX_Exception    if the system cannot create the condition variable, with its error number
     */
    Waiter& addWaiter() DALNIM_REQUIRES(_mutex);
    /** Makes the wait node of a worker that ends, and that is not idle, available to another one. */
    void removeWaiter(Waiter& waiter) noexcept DALNIM_REQUIRES(_mutex);

    /**
     * Makes a worker idle, so that it can be woken. The worker must then call wait().
     *
     * The queue must be empty, and the caller must still hold the locks under which it found that: otherwise
     * a closure that is put between that check and the wait would be missed.
     */
    void push(Waiter& waiter) noexcept DALNIM_REQUIRES(_mutex);
    /**
     * Blocks until the worker has been woken. Afterwards it is not idle any more, also if the thread is
     * cancelled during the wait.
     */
    void wait(Waiter& waiter) DALNIM_EXCLUDES(_mutex);

    /**
     * Wakes an idle worker, unless the parked ones that were woken since the queue was last empty, and do not
     * run yet, suffice for `pending` closures.
     *
     * @return the wake-up to deliver, if it needs to be delivered
     */
    Wakeup wakeFor(si_uint32_t pending) noexcept DALNIM_REQUIRES(_mutex)
    {
        return pending > _wokenCount && hasAny() ? wake() : Wakeup();
    }
    /** Wakes all idle workers. */
    void wakeAll() DALNIM_REQUIRES(_mutex);
    /**
     * Delivers a wake-up: signals a parked worker, or waits about a microsecond for the response of a
     * spinning one. Call it without the lock, for which the worker would otherwise have to wait.
     *
     * @return false if the spinning worker has not responded: another call of wakeFor() is then required
     */
    bool deliver(Wakeup wakeup) const DALNIM_EXCLUDES(_mutex);

    /** Returns true if a worker is idle that has not been woken. */
    bool hasAny() const noexcept DALNIM_REQUIRES(_mutex)
    {
        return _spinner != nullptr || _parked != nullptr;
    }
    /** Returns true if a worker is idle, also if it has been woken but does not run yet. */
    bool isIdle(const Waiter& waiter) const noexcept DALNIM_REQUIRES(_mutex);
    /** Returns the number of idle workers, including those that have been woken but do not run yet. */
    si_uint32_t count() const noexcept DALNIM_REQUIRES(_mutex)
    {
        return _count;
    }

private:
    class ParkGuard;

    static void spin(Waiter& waiter) noexcept;
    void park(Waiter& waiter) noexcept DALNIM_REQUIRES(_mutex);
    void leave(Waiter& waiter) noexcept DALNIM_REQUIRES(_mutex);
    Wakeup wake() noexcept DALNIM_REQUIRES(_mutex);
    Waiter* wakeSpinner() noexcept DALNIM_REQUIRES(_mutex);
    Waiter* wakeParked() noexcept DALNIM_REQUIRES(_mutex);

    RX_Mutex& _mutex;
    /** Storage of all wait nodes: one per worker. None is freed earlier, since deliver() holds no lock. */
    std::forward_list<Waiter> _waiters DALNIM_GUARDED_BY(_mutex);
    /** Wait nodes without a worker. */
    Waiter* _unused DALNIM_GUARDED_BY(_mutex) DALNIM_PT_GUARDED_BY(_mutex) = nullptr;
    /** The worker that spins and has not been woken, or null. */
    Waiter* _spinner DALNIM_GUARDED_BY(_mutex) = nullptr;
    /** LIFO stack of the workers that are parked and have not been woken. */
    Waiter* _parked DALNIM_GUARDED_BY(_mutex) DALNIM_PT_GUARDED_BY(_mutex) = nullptr;
    /** Number of workers between push() and the end of wait(). */
    si_uint32_t _count DALNIM_GUARDED_BY(_mutex) = 0;
    /** Number of parked workers that have been woken since the last push() and do not run yet. */
    si_uint32_t _wokenCount DALNIM_GUARDED_BY(_mutex) = 0;
    /** Number of calls of push(), plus 1. */
    si_uint64_t _pushCount DALNIM_GUARDED_BY(_mutex) = 1;
};

}

#endif
