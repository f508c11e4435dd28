#ifndef DALNIM_MT_THREADPOOL_HPP
#define DALNIM_MT_THREADPOOL_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mt/PoolStatistics.hpp>
#include <dalnim/mt/RunningTask.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <atomic>
#include <exception>
#include <functional>

class RX_ActivityRecorder;
class RX_ServerQueue;

namespace com::kor::dal::nim::mt {

class PoolQueue;

/**
 * Runs tasks on a fixed number of worker threads, each with a copy of the context that the submitting thread
 * had when it called add(). A task runs once. Exceptions that it throws are counted, passed to the handler of
 * the pool, if any, and then discarded; they are not logged. A task that ends its thread, by pthread_exit()
 * or by cancellation, is finished as by any other end, and the pool replaces the thread; if the system cannot
 * create a new one, the pool has one worker less. If a worker has no memory for its own state, its first task
 * is finished without running, and that exception is handled like one of the task.
 *
 * Child of a fork: the pool has no workers there, and queued tasks are not run. It may be destroyed, but no
 * task may be added.
 *
 * Thread safety: any thread may call any operation. A task may add tasks to its own pool, but may deadlock if
 * it blocks because the pool is full. A task must not call shutdown() of its own pool. No lock of the pool is
 * held while a task runs.
 */
class DALNIM_API ThreadPool : public virtual type::Object
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadPool";

    /**
     * A function that is called with an exception that has left a task, on the worker, before the task is
     * finished: the task, the pool and the context are still current, and the tracks of the task have ended.
     *
     * Its parameters are the task, or null if its owner may have destroyed it, since it was finished before
     * it threw; the exception, or null if it is not a `std::exception`; and a pointer that owns the
     * exception.
     */
    typedef std::function<void(const Task* task, const std::exception* known,
                               const std::exception_ptr& exception)>
        ExceptionHandler;

    /**
     * Starts the workers. The four parameters without a name have no effect.
     * @param name               the name; null for "ThreadPool" followed by the pool's ID
     * @param max_threads        number of workers, which never changes
     * @param max_pending_tasks  maximum number of tasks that wait for a worker
     * @throws RX_Exception  if the system cannot create the workers or the queue
     */
    ThreadPool(const char* name, unsigned int max_threads, unsigned int, unsigned int, unsigned int,
               unsigned int, unsigned int max_pending_tasks);
    /** Calls shutdown(false). */
    ~ThreadPool() noexcept(false) override;

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /**
     * Queues a task.
     * @param manage   makes the pool an owner of the task if the result is true: it deletes the task after
     *                 the run. If the task is reference-counted, the pool holds a reference until then
     *                 instead. An exception of the task's destructor is caught and logged under the module
     *                 "com.kor.dal.nim" with severity WARNING and the message "Unexpected exception while
     *                 destroying a task of a pool"
     * @param block    whether to wait while the pool is full. Otherwise the call never waits; threads that
     *                 add concurrently may exceed the limit by their number
     * @param context  the context to copy for the task, on the calling thread; null for the calling thread's
     *                 current one
     * @return false if the pool is full and `block` is false. The task remains the caller's, as it does if
     *         this throws
     * @throws std::logic_error  "Attempt to add a NULL Task", "Attempt to add a non-ready Task", or
     *                           "ThreadPool already shutdown". The task is unchanged
     * @throws std::bad_alloc    if memory runs out. After this and any other exception, which copying the
     *                           context or a lock may throw, the task is TSF_QUEUED and cannot be added again
     */
    bool add(Task* task, bool manage = false, bool block = true,
             const type::ContainerContext* context = nullptr);
    /** As above. The task remains the caller's, who must not destroy it before it is finished. */
    bool add(Task& task, bool block = true, const type::ContainerContext* context = nullptr);
    /** @name Add with a reference to a context */
    /** @{ */
    /** As above, with a reference to the context; empty for the calling thread's current one. */
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    bool add(Task* task, bool manage, bool block, const mem::ConstRcoRef<T>& context)
    {
        return add(task, manage, block, static_cast<const type::ContainerContext*>(context.get()));
    }
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    bool add(Task* task, bool manage, const mem::ConstRcoRef<T>& context)
    {
        return add(task, manage, true, context);
    }
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    bool add(Task* task, const mem::ConstRcoRef<T>& context)
    {
        return add(task, false, true, context);
    }
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    bool add(Task& task, bool block, const mem::ConstRcoRef<T>& context)
    {
        return add(&task, false, block, context);
    }
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    bool add(Task& task, const mem::ConstRcoRef<T>& context)
    {
        return add(&task, false, true, context);
    }
    /** @} */
    // Other arguments would convert to a flag silently, also a pointer to a context. A reference to a context
    // may only be the last argument.
    template <class T, class... More,
              class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN
                                       && (sizeof...(More) != 0 || !FlagArgument<T>::IS_CONTEXT_REFERENCE)>>
    bool add(Task* task, T&& manage, More&&... more) = delete;
    template <class T, class... More,
              class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN
                                       && (sizeof...(More) != 0 || !FlagArgument<T>::IS_CONTEXT_REFERENCE)>>
    bool add(Task* task, bool manage, T&& block, More&&... more) = delete;
    template <class T, class... More,
              class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN
                                       && (sizeof...(More) != 0 || !FlagArgument<T>::IS_CONTEXT_REFERENCE)>>
    bool add(Task& task, T&& block, More&&... more) = delete;

    /**
     * Shuts the pool down; a second call does nothing. An add() that waits because the pool is full returns,
     * and its task is discarded. Does nothing in the child of a fork.
     *
     * A task of the pool must not call this: it would wait for itself. A second thread that calls this
     * concurrently waits as well.
     * @param synchronous  whether to run all queued tasks first, without a time limit. Otherwise queued tasks
     *                     are discarded, and running tasks are waited for only if a worker becomes idle
     *                     within one second
     */
    void shutdown(bool synchronous = true, bool = false);

    /** What shutdownWithin() does with the tasks that no worker has taken. */
    enum class Queued {
        /** Runs them as long as the time suffices. */
        FINISH,
        /** Discards them immediately. */
        DISCARD
    };

    /**
     * Shuts the pool down within a time limit, and returns the tasks that it has not finished: the number of
     * those that were discarded, and a description of those that still run. If the result has none of either,
     * the pool has ended as by shutdown(). An add() that waits because the pool is full returns, and its task
     * is discarded without being counted in the result.
     *
     * Tasks that still run continue. Their workers own everything of the pool that they use, so the pool
     * object may be destroyed, which does not wait, or may never be destroyed. The following must exist until
     * the tasks have ended:
     * - tasks that the pool does not own, their targets, and everything that the tasks use;
     * - the pool object, if a running task uses it, for example through currentPool();
     * - static objects and plug-ins that the tasks use. A program in which a task may still run must
     * therefore end by `std::_Exit()` or `std::quick_exit()`: `exit()` and the return from `main()` destroy
     * static objects.
     *
     * The call may be repeated, to wait longer. It may follow a shutdown() that has returned while tasks were
     * running. A task of the pool may call it: it then waits for itself until the end of the time, and is
     * part of the result. Does nothing in the child of a fork.
     *
     * The destructors of discarded tasks that the pool owns run on the calling thread, and may exceed the
     * limit. Running tasks are described by name if the pool collects statistics. If sys::ThreadReport is
     * installed, they are described by name and with their tracks, which may exceed the limit by half a
     * second. Otherwise only their threads are known.
     * @param ms      the time limit in milliseconds; 0 does not wait
     * @param queued  what to do with the tasks that no worker has taken. Those that are still queued at the
     *                end of the time are discarded
     * @throws std::bad_alloc  if memory runs out. If not even a StackTrack could be created, nothing has
     *                         happened; otherwise the pool is shut down
     */
    UnfinishedTasks shutdownWithin(unsigned int ms, Queued queued = Queued::FINISH);
    /**
     * Returns a description of the tasks that the workers run at present. The tasks may end at any time; a
     * worker that is between two tasks may be included, with the task ID 0.
     * @param withTracks  whether to ask the threads for their tracks, by a sys::ThreadReport, which takes
     *                    half a second if one does not answer. Has no effect unless that is installed
     * @throws std::bad_alloc  if memory runs out
     */
    RunningTasks runningTasks(bool withTracks = false) const;

    /**
     * Sets the function that is called with each exception that leaves a task of this pool. Several workers
     * may call it at the same time. Exceptions of the handler are discarded; it may end its thread as a task
     * may. ~ThreadPool() removes the handler: it is not called for a task that ends later.
     *
     * Lifetime: a call that has begun may continue after the handler was replaced or removed, and the handler
     * is destroyed after it. So a handler must only use objects that it owns, or that are never destroyed.
     * @param handler  the handler, which replaces the present one; empty for none
     * @throws std::bad_alloc  if memory runs out; the present handler remains
     */
    void setExceptionHandler(ExceptionHandler handler);
    /** Returns the number of exceptions that have left tasks of this pool, with or without a handler. */
    UInt64_t exceptionCount() const noexcept;

    /**
     * Gives the workers, including those that replace them later, the name of the pool in the kernel, where
     * `top -H`, `ps -L`, debuggers and profilers show it. The kernel stores 15 bytes; a longer name is
     * truncated, in front of the UTF-8 character that would be cut. Does nothing if the name is empty. If the
     * system cannot open the file that names a thread, that thread keeps its name.
     */
    void setKernelNames();
    /**
     * Starts to collect statistics about the tasks that are added afterwards, until the end of the pool. The
     * clock is then read when a task is added, when it begins and when it ends. A second call does nothing.
     * @throws std::bad_alloc  if memory runs out; the pool is unchanged
     */
    void collectStatistics();
    /**
     * Returns the present figures. Acquires no lock and delays no worker.
     * @throws std::bad_alloc  if memory runs out for the name
     */
    PoolStatistics statistics() const;

    /** Returns the name, which is valid as long as the pool. */
    const String& name() const noexcept
    {
        return _name;
    }
    /** Returns the ID, which is unique in the process among tasks, threads and pools. */
    TaskID_t poolId() const noexcept
    {
        return _id;
    }

    /** Returns the pool whose task the calling thread runs, or null. */
    static ThreadPool* currentPool();

private:
    friend class TaskEvidence;
    friend class Watchdog;

    String _make_tp_name(const char* name, TaskID_t id) const;
    bool isFull() const;
    bool hasWorkers() const;
    bool probe();
    __attribute__((visibility("hidden"))) RunningTasks remainingTasks() const;
    __attribute__((visibility("hidden"))) PoolQueue& poolQueue() const noexcept;

    const TaskID_t _id;
    /** The process in which the workers run. */
    const ProcID_t _process;
    const String _name;
    /** The queue with the workers, a PoolQueue, with one reference. */
    RX_ServerQueue* _queue;
    /** Counts the queued and the running tasks. With one reference. */
    RX_ActivityRecorder* _ar;
    /** Maximum number of queued tasks. */
    const UInt32_t _max_pending_tasks;
    /** Set when shutdown() begins. */
    std::atomic<bool> isPoolClosed;
};

/** Does nothing. Run by the closure with which shutdown() finds out whether a worker is idle. */
DALNIM_API void activeThreadsFunction();

}

#endif
