#ifndef DALNIM_MT_THREADPOOL_HPP
#define DALNIM_MT_THREADPOOL_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <atomic>

class RX_ActivityRecorder;
class RX_ServerQueue;

namespace com::kor::dal::nim::mt {

/**
 * Runs tasks on a fixed set of worker threads, each under a copy of the context that its submitter
 * had at that moment. A task runs once; what it throws is dropped. A task that ends its thread, by
 * pthread_exit or because it is cancelled, is finished like any other, and the pool replaces the thread;
 * only if the system refuses a new one does the pool have one worker less.
 *
 * Any thread may submit, also a task of the pool: but one that waits for room in its own full pool
 * may wait for itself. Nothing of the pool is locked while a task runs.
 *
 * In the child of a fork the pool has no workers, and what is queued stays where it is. It may be
 * destroyed there, so that the child may exit, and not be submitted to.
 */
class DALNIM_API ThreadPool : public virtual type::Object
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadPool";

    /**
     * Starts the workers. Failures of the system reach the caller as RX_Exception.
     * @param name              null for "ThreadPool" and the pool's number
     * @param max_threads       how many workers, for the life of the pool
     * @param max_pending_tasks how many tasks may wait for a worker
     * The four in between have no effect.
     */
    ThreadPool(const char* name, unsigned int max_threads, unsigned int, unsigned int, unsigned int,
               unsigned int, unsigned int max_pending_tasks);
    /** shutdown(false). */
    ~ThreadPool() noexcept(false) override;

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /**
     * Queues a task. Throws `std::logic_error`: "Attempt to add a NULL Task", "Attempt to add a
     * non-ready Task", "ThreadPool already shutdown".
     * @param manage  the pool deletes the task when it is through with it, or, if it is counted,
     *                holds a reference that long. An exception of the task's destructor is caught and logged
     *                under the module "com.kor.dal.nim" with severity WARNING and the message "Unexpected
     *                exception while destroying a task of a pool"
     * @param block   waits for room. Otherwise the call never waits, and the result may be false; threads
     *                that add concurrently may exceed the limit by their number
     * @param context what the task gets a copy of, made here; null for the caller's current one
     * @return false when the limit of pending tasks refused it: it stays the caller's, also a managed
     *         one
     */
    bool add(Task* task, bool manage = false, bool block = true,
             const type::ContainerContext* context = nullptr);
    /** The task stays the caller's, who keeps it until it is finished. */
    bool add(Task& task, bool block = true, const type::ContainerContext* context = nullptr);
    /** @name Add with a counted context */
    /** @{ */
    /** The same, with the context that `context` holds; empty for the caller's current one. */
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
    // Something else in the place of a flag, also a pointer to a context; a counted one is meant only as the
    // last argument.
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
     * Ends the pool; a second call does nothing. An add() that is waiting for room returns, and its task is
     * dropped. Synchronously, all that is queued is run first. Otherwise what no worker has taken is dropped,
     * and running tasks are waited for only if a worker becomes free within a second. Does nothing in the
     * child of a fork.
     *
     * No task of the pool may call it: it would wait for itself. A second thread that calls it before
     * the first is through waits as well.
     */
    void shutdown(bool synchronous = true, bool = false);

    /** The name of the pool, valid as long as that. */
    const String& name() const noexcept
    {
        return _name;
    }
    /** Its number: unique in the process among tasks, threads and pools. */
    TaskID_t poolId() const noexcept
    {
        return _id;
    }

    /** The pool whose task the calling thread runs, or null. */
    static ThreadPool* currentPool();

private:
    String _make_tp_name(const char* name, TaskID_t id) const;
    bool isFull() const;
    bool hasWorkers() const;
    bool probe();

    const TaskID_t _id;
    /** The process that has the workers. */
    const ProcID_t _process;
    const String _name;
    /** These two with one reference each. */
    RX_ServerQueue* _queue;
    RX_ActivityRecorder* _ar;
    const UInt32_t _max_pending_tasks;
    std::atomic<bool> isPoolClosed;
};

/** Does nothing: the work of the closure that asks whether a worker is free. */
DALNIM_API void activeThreadsFunction();

}

#endif
