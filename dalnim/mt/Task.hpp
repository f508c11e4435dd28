#ifndef DALNIM_MT_TASK_HPP
#define DALNIM_MT_TASK_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mt/FlagArgument.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <qv/rtlapi/RX_String.hpp>

#include <atomic>
#include <exception>
#include <type_traits>

namespace com::kor::dal::nim::mt {

/**
 * A unit of work with an identity, a name, a public state and interrupt bits, and ways to wait on
 * these. It starts nothing by itself: a Thread, a ThreadPool or a direct call of run() runs it.
 *
 * Any thread may interrupt, wait and look. Whoever destroys a task sees to it that nothing runs it or
 * waits on it any more. Failures of the system reach the caller as RX_Exception.
 */
class DALNIM_API Task : public Runnable
{
public:
    static constexpr const char CLASS_NAME[] = "Task";

    /** One bit a state. */
    enum TaskState : UInt32_t {
        /** May be started or queued. */
        TSF_READY = 1,
        /** Handed to a pool, not yet taken by a worker. */
        TSF_QUEUED = 2,
        /** A thread was asked to start for it. */
        TSF_STARTING = 4,
        TSF_RUNNING = 8,
        /** Over, normally or by an exception. */
        TSF_FINISHED = 16,
        /** A join has begun. */
        TSF_JOINED = 32,
        /** Its thread object is being destroyed. */
        TSF_DESTROYED = 64,
        /** Queued, starting or running. */
        TSF_MASK_ACTIVE = 14
    };

    /**
     * @param tgt     what run() calls; throws `std::logic_error`, "Runnable target was NULL", for null
     * @param destroy makes this task an owner of `tgt`: of a reference-counted one it acquires a reference
     *                now and releases it in its destructor, any other it deletes there. If construction
     *                fails, `tgt` remains the caller's
     * @param name    the name as it stands, or null
     * @param label   with no name, what the name begins with, in front of the task's number; "Task"
     *                for null
     */
    explicit Task(Runnable* tgt, bool destroy = false, const char* name = nullptr,
                  const char* label = nullptr);
    /** The target stays the caller's. */
    explicit Task(Runnable& tgt, const char* name = nullptr, const char* label = nullptr);
    // A name in the place of the flag would make the task an owner of its target.
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    Task(Runnable* tgt, T&& destroy, More&&... more) = delete;
    /**
     * Releases or deletes a target that it owns. An exception of the target's destructor is caught and
     * logged under the module "com.kor.dal.nim" with severity WARNING and the message "Unexpected exception
     * while destroying the target of a task"; only the unwinding of a thread that ends there passes.
     */
    ~Task() noexcept(false) override;

    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    /**
     * Runs the target on the calling thread. What the target throws passes, and leaves the task
     * running and current: ending that is for the caller.
     */
    void run() override;

    /** The state of the moment, without a lock. */
    TaskState status() const noexcept
    {
        return static_cast<TaskState>(_state.load(std::memory_order_acquire) & ~HAS_WAITERS);
    }
    /** Whether it runs at this moment. */
    bool running() const noexcept
    {
        return status() == TSF_RUNNING;
    }
    /** Its number, for life: unique in the process among tasks, threads and pools. */
    TaskID_t taskId() const noexcept
    {
        return _id;
    }
    /** Its name: as given, or the label and the number. */
    String name() const;

    /**
     * Sets interrupt bits, whose meaning belongs to the users of the task, and wakes all waiters.
     * @param bits 0 stands for the lowest bit
     * @return all bits that are set now
     */
    unsigned long interrupt(unsigned long bits);
    /** The interrupt bits, which are cleared, save bit 31. */
    unsigned long interrupted();

    /**
     * Waits until the task is finished. 0 does not wait and tells whether it is. Otherwise true means
     * that it became finished during this wait: a task that is finished already gives false, at once.
     * @param ms milliseconds, of which what is below a second counts as microseconds
     */
    bool waitForCompletion(unsigned int ms) const;
    /**
     * Waits until the state or the interrupt bits change, not at all while bits are set.
     * @param ms milliseconds; 0 does not wait
     */
    void waitForStateChange(unsigned int ms) const;

    /** The task that the calling thread runs, or null. */
    static Task* currentTask();

protected:
    /** A task that is its own target: a derived class replaces run(). */
    explicit Task(const char* name, const char* label = nullptr);

    /**
     * A copy of an exception that outlives its handler, owned by the caller: a clone if it can be
     * cloned, else a copy as the first of the standard types that it is one of.
     */
    static std::exception* cloneError(const std::exception& e);

private:
    friend class TaskClosure;
    friend class Thread;
    friend class ThreadPool;

    /**
     * What run() itself has finished last on the calling thread. It is there to be compared: the owner
     * may have destroyed it since.
     */
    static const Task*& _last_finished() noexcept;

    /** The clone of an exception that can be cloned, null otherwise. Throws as cloneError(). */
    static std::exception* _cloneOf(const std::exception& e);
    /** A copy as the first of the standard types that the exception is one of. */
    static std::exception* _standardCopyOf(const std::exception& e);

    void _set_state(TaskState ts);
    /** The state, whose next change will ring the bell. The caller holds the bell's lock until it waits. */
    TaskState _mark_waiter() const;
    RX_String _make_name(const char* name, const char* label, TaskID_t id) const;
    /** Declared for the layout of the interface; nothing calls them. */
    void _run_via_thread();
    void _run_via_threadpool();

    /** Beside the state: somebody may be waiting at the bell of this task. */
    static constexpr UInt32_t HAS_WAITERS = 0x80000000;

    /** The state, and HAS_WAITERS. Whoever replaces it and finds that bit set rings the bell. */
    mutable std::atomic<UInt32_t> _state;
    const TaskID_t _id;
    /** Guarded by the lock of the bell. */
    unsigned long _intbits;
    Runnable* const _target;
    const bool _manage;
    const RX_String _name;
};

}

#endif
