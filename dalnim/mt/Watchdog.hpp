#ifndef DALNIM_MT_WATCHDOG_HPP
#define DALNIM_MT_WATCHDOG_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mt/Runnable.hpp>

#include <memory>

namespace com::kor::dal::nim::mt {

class ThreadPool;

/**
 * Logs what takes too long: tasks of pools, queues of pools that do not move, and threads that stay in one
 * track. Each finding is logged once, under the module "com.kor.dal.nim" with severity WARNING, with the
 * tracks of its threads; and again, with the time that it has lasted, when it is over.
 *
 * The library starts no thread for it. The application runs it on one, usually by a Thread whose target it
 * is, or calls check() itself:
 *
 *     mt::Watchdog watchdog(1000);
 *     watchdog.setTaskLimit(5000);
 *     watchdog.watch(pool);
 *     mt::Thread thread(watchdog, true, "watchdog");
 *     thread.start();
 *
 * Times are as exact as the period: a finding is logged up to one period late, and its end as well.
 *
 * Tracks are included if sys::ThreadReport::install() has been called. Threads are then interrupted by its
 * signal: for the limit of tracks at each check, otherwise only when there is a new finding.
 *
 * Lifetime: a pool may be destroyed while it is watched.
 *
 * Thread safety: any thread may call any operation, but only one at a time may call check() or run().
 */
class DALNIM_API Watchdog : public Runnable
{
public:
    static constexpr const char CLASS_NAME[] = "Watchdog";

    /**
     * @param period_ms  time between two checks of run(), in milliseconds; 0 counts as 1
     * @throws RX_Exception  if the system cannot create a condition variable
     */
    explicit Watchdog(unsigned int period_ms);
    ~Watchdog() noexcept(false) override;

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /** @name Limits */
    /** @{ */
    /** Each is in milliseconds; 0, the initial value, disables the check. */
    /** Sets the time after which a task of a pool is logged. */
    void setTaskLimit(unsigned int ms);
    /** Sets the time after which a queue is logged in which tasks wait and from which none has been taken. */
    void setQueueLimit(unsigned int ms);
    /**
     * Sets the time after which a thread is logged that has been in the same track and task, whatever it
     * waits for or runs. Has no effect unless sys::ThreadReport is installed, which measures the time between
     * checks.
     */
    void setTrackLimit(unsigned int ms);
    /** @} */

    /**
     * Watches a pool, and makes it collect statistics: tasks that were added earlier are not watched. Does
     * nothing if the pool is watched already.
     * @throws std::bad_alloc  if memory runs out; the pool is not watched
     */
    void watch(ThreadPool& pool);

    /**
     * Checks all limits once, on the calling thread. If logging fails, a line is written to standard error.
     * @throws std::bad_alloc  if memory runs out; what was not logged is logged by the next check
     */
    void check();
    /**
     * Calls check() once per period until stop() is called. If memory runs out, the next period makes up for
     * it.
     */
    void run() override;
    /** Makes run() return, also if it is called later. Does not wait for it. */
    void stop();

private:
    class State;

    const std::unique_ptr<State> _state;
};

}

#endif
