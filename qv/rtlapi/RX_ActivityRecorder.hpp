#ifndef QV_RTLAPI_RX_ACTIVITYRECORDER_HPP
#define QV_RTLAPI_RX_ACTIVITYRECORDER_HPP

#include <atomic>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Monitor.hpp>

class RX_ServerQueue;

/**
 * Counts the closures of a server queue, the pending and the running ones together, and lets threads
 * wait until there are none.
 *
 * Thread safety: every operation may be called from any thread. The object's lock is taken by those who
 * wait, and by the `dec` that ends their wait. Whoever finds the backlog at 0 may let go of the recorder
 * although the `dec` that brought it there has yet to return.
 */
class DALNIM_API RX_ActivityRecorder : public RX_Monitor
{
public:
    RX_ActivityRecorder();

    /** How many closures are pending or running at this moment. */
    si_uint32_t getBacklog() const;

    /** Waits, without limit, until the backlog is 0. */
    void waitForQuiet() const;

    /** One more closure: the queue accepts it. */
    void inc();
    /**
     * One closure less: it was run or dropped, and is gone. Raises RX_ExFatal with the code 51459 when
     * there was none.
     */
    void dec();

    /** Tells that a queue begins to report here. Does nothing. */
    void connect(RX_ServerQueue* sq);
    /** Tells that a queue ceases to report here. Does nothing. */
    void disconnect(RX_ServerQueue* sq);

protected:
    ~RX_ActivityRecorder() noexcept(false) override;

private:
    static constexpr unsigned int CACHE_LINE = 64;
    /** In _ended: somebody waits for quiet. */
    static constexpr si_uint64_t AWAITED = 1;
    /** One closure in _ended. */
    static constexpr si_uint64_t ONE = 2;

    si_uint32_t backlogBehind(si_uint64_t ended) const;
    si_uint64_t backlogUpTo(si_uint64_t wanted, si_uint64_t ended);
    void endLast();

    Construction _construction{*this};
    // The backlog is the difference of two counts that never go back, each on a line of its own: those
    // who submit write the one, and the workers the other.
    alignas(CACHE_LINE) std::atomic<si_uint64_t> _begun{0};
    /** Twice the count, and AWAITED, which is set and cleared under the lock. */
    alignas(CACHE_LINE) mutable std::atomic<si_uint64_t> _ended{0};
    /** What _begun was at some time, so that the workers need not look each time. */
    std::atomic<si_uint64_t> _begunAtLeast{0};
    RX_Condition _quiet;
};

#endif
