#ifndef QV_RTLAPI_SRC_SERVERQUEUEACCESS_HPP
#define QV_RTLAPI_SRC_SERVERQUEUEACCESS_HPP

#include <vector>

#include <qv/rtlapi/RX_ServerQueue.hpp>
#include <qv/rtlapi/src/KernelName.hpp>

namespace qv {

/** Operations of an RX_ServerQueue that only the thread pool uses. Any thread may call them. */
class ServerQueueAccess
{
public:
    /** The worker that a thread is. */
    struct CurrentWorker
    {
        /** The queue of the worker, which lives at least as long as the thread; null for other threads. */
        RX_ServerQueue* queue;
        /**
         * Number of workers that were added to the queue before this one. A thread that replaces a worker has
         * its index.
         */
        unsigned int index;
    };

    /** Returns the worker that the calling thread is. */
    static CurrentWorker currentWorker() noexcept;

    /** A worker that runs a closure, is about to dequeue one, or is about to end. */
    struct BusyWorker
    {
        /** Index of the worker, as in CurrentWorker. */
        unsigned int index;
        /** ID of its thread; 0 if the thread has not started yet. */
        ThreadID_t thread;
    };

    /**
     * Returns the workers that are not idle.
     *
     * @throws std::bad_alloc  if memory runs out
     */
    static std::vector<BusyWorker> busyWorkers(const RX_ServerQueue& queue);

    /** Names the threads of the workers for the kernel, including those that are started afterwards. */
    static void setThreadName(RX_ServerQueue& queue, const KernelName& name);

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
    /** Closes the queue like `close`. Returns the number of closures that were discarded. */
    static unsigned int close(RX_ServerQueue& queue);
};

}

#endif
