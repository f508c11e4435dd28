#ifndef QV_RTLAPI_SRC_SERVERQUEUEACCESS_HPP
#define QV_RTLAPI_SRC_SERVERQUEUEACCESS_HPP

#include <qv/rtlapi/RX_ServerQueue.hpp>

namespace qv {

/** Operations of an RX_ServerQueue that only the thread pool uses. Any thread may call them. */
class ServerQueueAccess
{
public:
    /** Appends a closure like `put`, but never blocks: it is appended even if the queue is full. */
    static void putBeyondCapacity(RX_ServerQueue& queue, RX_Closure* closure)
    {
        queue.putBeyondCapacity(closure);
    }
    /**
     * Makes the queue discard closures that are put afterwards, and those of threads that are blocked in
     * `put`. putProbe() works until the queue is closed, and pending closures are still run.
     */
    static void refusePuts(RX_ServerQueue& queue)
    {
        queue.refusePuts();
    }
};

}

#endif
