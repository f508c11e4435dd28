#ifndef QV_RTLAPI_RX_SERVERQUEUE_HPP
#define QV_RTLAPI_RX_SERVERQUEUE_HPP

#include <memory>

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Lockable.hpp>

class RX_ActivityRecorder;
class RX_Closure;

namespace qv {
class ServerQueueAccess;
}

/**
 * A bounded FIFO queue of closures, with the worker threads that run them.
 *
 * Ownership: a put operation transfers one reference to the queue, which releases it after the closure has
 * run or has been discarded. If the operation throws, or tryPut() returns 0, the caller keeps the reference.
 *
 * Lifetime: each worker holds a reference to the queue, so the owner may `detach` while closures run. It must
 * call close() first; otherwise idle workers keep the queue alive indefinitely.
 *
 * An open queue discards closures only in flush(). Without workers they remain pending until threads are
 * added. After close(), put() and putProbe() discard the closure immediately, and tryPut() returns 0.
 *
 * Activity: the connected recorder is incremented for each closure that the queue takes over, even if it
 * discards it, and decremented after that closure has been released.
 *
 * Exceptions that leave a closure on a worker terminate the process, as on an RX_Thread. If a closure ends
 * its thread, by pthread_exit or because the thread is cancelled, the closure is released, and a new thread
 * replaces the worker. The queue loses the worker only if the system cannot create that thread.
 *
 * Thread safety: any thread may call any operation, including from a closure that the queue runs; only
 * size_nolock() requires the lock of the queue. No lock is held while a closure runs or is destroyed.
 */
class DALNIM_API RX_ServerQueue : public RX_Lockable
{
public:
    /**
     * Creates an open queue without threads.
     *
     * @param capacity  maximum number of pending closures; with 0, put() hands each closure to an idle worker
     * @throws std::bad_alloc  if memory runs out
     * @throws RX_Exception    if the system cannot create a condition variable, with its error number
     */
    explicit RX_ServerQueue(unsigned int capacity);

    /**
     * Starts worker threads. Does nothing if the queue is closed.
     *
     * @throws std::bad_alloc  if memory runs out
     * @throws RX_Exception    if the system cannot create a thread, with its error number (such as 11,
     *                         `EAGAIN`); the threads that were started before remain
     */
    void addThreads(unsigned int count);

    /**
     * Makes `count` workers, or all if there are fewer, end when they are next free. Pending closures are
     * left to the other workers, or to those that are added later. Workers that are added after this call are
     * not affected by it.
     */
    void removeThreads(unsigned int count);

    /**
     * Connects a recorder in place of the present one.
     *
     * @param ar  the recorder, to which the queue acquires a reference, or null for none
     * @throws RX_ExFatal  with the code 51459 if the queue is not empty or has threads
     */
    void connectActivityRecorder(RX_ActivityRecorder* ar);

    /** Discards the pending closures. An exception from the destructor of a closure propagates. */
    ~RX_ServerQueue() noexcept(false) override;

    /**
     * Appends a closure, even if there are no workers. Blocks while the queue is full.
     *
     * @param closure  one reference to it, which is transferred to the queue
     * @throws std::bad_alloc  if memory runs out; the caller then keeps the reference
     */
    virtual void put(RX_Closure* const& closure);
    /**
     * Appends a closure, even beyond the capacity.
     *
     * @param closure  one reference to it, which is transferred to the queue
     * @throws std::bad_alloc  if memory runs out; the caller then keeps the reference
     */
    virtual void putProbe(RX_Closure* const& closure);
    /**
     * Appends a closure, unless the queue is full or closed.
     *
     * @param closure  one reference to it, which is transferred to the queue if the result is 1
     * @return 1 if the closure was appended, otherwise 0
     * @throws std::bad_alloc  if memory runs out; the caller then keeps the reference
     */
    virtual qv_bool_t tryPut(RX_Closure* const& closure);
    /**
     * Runs the oldest pending closure on the calling thread. Exceptions that leave it propagate.
     *
     * @return 1 if a closure was run, 0 if none was pending
     */
    virtual qv_bool_t runPending();
    /** Returns the number of pending closures. */
    virtual unsigned int size() const;
    /** Discards all pending closures, and ends each worker once its running closure has returned. */
    virtual void close();
    /** Returns a value other than 0 if the queue has been closed. */
    virtual int isClosed() const;
    /** Returns the number of pending closures. The caller must hold the lock of the queue. */
    virtual unsigned int size_nolock() const DALNIM_REQUIRES(this);
    /** Returns the number of workers, including those that are about to end. */
    virtual si_uint32_t threadCount() const;
    /** Discards all pending closures. */
    virtual void flush();

private:
    friend class qv::ServerQueueAccess;

    class Implementation;

    void putBeyondCapacity(RX_Closure* closure);
    void refusePuts();

    Construction _construction{*this};
    const std::unique_ptr<Implementation> _implementation;
    /** The connected recorder, with one reference, or null. */
    RX_ActivityRecorder* _ar DALNIM_GUARDED_BY(this) = nullptr;
    /** Number of workers, including those that are about to end. */
    si_uint32_t _threadCount DALNIM_GUARDED_BY(this) = 0;
};

#endif
