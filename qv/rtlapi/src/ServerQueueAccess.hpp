#ifndef QV_RTLAPI_SRC_SERVERQUEUEACCESS_HPP
#define QV_RTLAPI_SRC_SERVERQUEUEACCESS_HPP

#include <qv/rtlapi/RX_ServerQueue.hpp>

namespace qv {

/** Operations of an RX_ServerQueue that only the thread pool uses. Any thread may call them. */
class ServerQueueAccess
{
public:
    /** As `put`, but never waits: appends the closure even if the queue is full. */
    static void putBeyondCapacity(RX_ServerQueue& queue, RX_Closure* closure)
    {
        queue.putBeyondCapacity(closure);
    }
    /**
     * Makes the queue drop what is put from now on, and the closures of threads that are blocked in `put`.
     * putProbe() works until the queue is closed, and pending closures are still run.
     */
    static void refusePuts(RX_ServerQueue& queue)
    {
        queue.refusePuts();
    }
};

}

#endif
