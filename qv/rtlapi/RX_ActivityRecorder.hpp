#ifndef QV_RTLAPI_RX_ACTIVITYRECORDER_HPP
#define QV_RTLAPI_RX_ACTIVITYRECORDER_HPP

#include <atomic>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Monitor.hpp>

class RX_AbsTime;
class RX_ServerQueue;

/**
 * Counts the closures of a server queue that are pending or running (the backlog). Threads can wait until
 * there are none. Destroyed only by `detach`.
 *
 * Thread safety: any thread may call any operation. The lock of the object is acquired only by waiting
 * threads, and by the `dec` that ends their wait. A thread that finds the backlog to be 0 may release its
 * reference, even if the `dec` that ended the last closure has not returned yet.
 */
class DALNIM_API RX_ActivityRecorder : public RX_Monitor
{
public:
    /**
     * Creates a recorder with a backlog of 0.
     *
     * @throws RX_Exception  if the system cannot create the condition variable, with its error number
     */
    RX_ActivityRecorder();

    /** Returns the number of closures that are pending or running. */
    si_uint32_t getBacklog() const;

    /** Blocks until the backlog is 0, without a time limit. */
    void waitForQuiet() const;
    /**
     * Blocks until the backlog is 0, or until a time-out.
     *
     * @return 1 if the backlog is 0, 0 if the time-out has expired
     */
    qv_bool_t waitForQuiet(const RX_AbsTime& deadline) const;

    /** Increments the backlog: the queue takes over a closure. */
    void inc();
    /**
     * Decrements the backlog: a closure was run or discarded, and has been released.
     *
     * @throws RX_ExFatal  with the code 51459 if the backlog is 0
     */
    void dec();

    /** Called when the recorder is connected to a queue. Does nothing. */
    void connect(RX_ServerQueue* sq);
    /** Called when the recorder is disconnected from a queue. Does nothing. */
    void disconnect(RX_ServerQueue* sq);

protected:
    ~RX_ActivityRecorder() noexcept(false) override;

private:
    static constexpr unsigned int CACHE_LINE = 64;
    /** Bit of `_finished`: threads wait until the backlog is 0. */
    static constexpr si_uint64_t HAS_WAITERS = 1;
    /** One closure in `_finished`. */
    static constexpr si_uint64_t ONE_CLOSURE = 2;

    si_uint32_t backlogAt(si_uint64_t finished) const;
    si_uint64_t minimalBacklog(si_uint64_t sufficient, si_uint64_t finished);
    bool finishLast();

    Construction _construction{*this};
    // The backlog is the difference of two counts that only increase, each on a cache line of its own:
    // producers write the first, workers the second.

    /** Number of calls of inc(). */
    alignas(CACHE_LINE) std::atomic<si_uint64_t> _started{0};
    /** Number of calls of dec(), in units of ONE_CLOSURE, and HAS_WAITERS, which changes under the lock. */
    alignas(CACHE_LINE) mutable std::atomic<si_uint64_t> _finished{0};
    /** Lower bound of `_started`, cached to avoid reading the producers' cache line. */
    std::atomic<si_uint64_t> _startedBound{0};
    /** Signalled when the backlog becomes 0 while threads wait. */
    RX_Condition _quiet;
};

#endif
