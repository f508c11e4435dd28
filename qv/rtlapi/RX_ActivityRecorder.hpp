#ifndef QV_RTLAPI_RX_ACTIVITYRECORDER_HPP
#define QV_RTLAPI_RX_ACTIVITYRECORDER_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Monitor.hpp>

class RX_ServerQueue;

/**
 * Counts the closures of a server queue, the pending and the running ones together, and lets threads
 * wait until there are none.
 *
 * Thread safety: every operation may be called from any thread.
 */
class DALNIM_API RX_ActivityRecorder : public RX_Monitor
{
public:
    RX_ActivityRecorder();

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
    si_uint32_t _backlog = 0;
    RX_Condition _quiet;
};

#endif
