#ifndef DALNIM_MT_SRC_POOLQUEUE_HPP
#define DALNIM_MT_SRC_POOLQUEUE_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mt/RunningTask.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/mt/src/PoolFigures.hpp>
#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <atomic>
#include <exception>
#include <memory>

namespace com::kor::dal::nim::mt {

class Task;

/**
 * The queue of a pool, with the state of the pool that its workers use. They hold references to the queue,
 * which therefore outlives the tasks that still run when the pool is destroyed.
 *
 * Thread safety: any thread may call any operation.
 */
class alignas(64) PoolQueue : public RX_ServerQueue
{
public:
    /**
     * @param capacity  maximum number of pending closures
     * @param workers   number of workers that will be added
     */
    PoolQueue(unsigned int capacity, unsigned int workers);
    ~PoolQueue() noexcept(false) override;

    /** Returns the queue of the pool for which the calling thread is a worker, or null. */
    static PoolQueue* current() noexcept;

    /** Replaces the handler of exceptions; an empty function removes it. */
    void setExceptionHandler(ThreadPool::ExceptionHandler handler);
    /**
     * Counts an exception that has left a task and calls the handler, if any. Discards exceptions of the
     * handler; only a forced unwinding leaves this function.
     * @param task  the task, or null if its owner may have destroyed it
     */
    void handleException(const Task* task, const std::exception_ptr& exception);
    /** Returns the number of calls of handleException(). */
    UInt64_t exceptionCount() const noexcept
    {
        return _exceptionCount.load(std::memory_order_acquire);
    }

    /** Starts to collect statistics. Does nothing if they are collected already. Throws `std::bad_alloc`. */
    void collectFigures();
    /** Returns the counters, or null if the pool collects no statistics. */
    PoolFigures* figures() const noexcept
    {
        return _figures.load(std::memory_order_acquire);
    }
    /**
     * Returns the tasks of the workers that are not idle. A worker that is between two tasks may be included,
     * with the ID 0.
     */
    RunningTasks runningTasks() const;

    /** Returns the number of workers that were added. */
    unsigned int workers() const noexcept
    {
        return _workers;
    }

private:
    /** A handler, in a class that is not visible outside of the library. */
    struct Handler
    {
        const ThreadPool::ExceptionHandler function;
    };

    Construction _construction{*this};
    // Read by each add(), as are the members of the base class on the same cache line.
    /** The counters, or null. Never replaced, since tasks refer to them. */
    std::atomic<PoolFigures*> _figures{nullptr};
    std::unique_ptr<PoolFigures> _ownFigures DALNIM_GUARDED_BY(this);
    const unsigned int _workers;
    /** Shared with the threads that call it, which hold no lock during the call. Null for none. */
    std::shared_ptr<const Handler> _exceptionHandler DALNIM_GUARDED_BY(this);
    std::atomic<UInt64_t> _exceptionCount{0};
};

}

#endif
