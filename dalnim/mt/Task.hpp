#ifndef DALNIM_MT_TASK_HPP
#define DALNIM_MT_TASK_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mt/FlagArgument.hpp>
#include <dalnim/mt/Runnable.hpp>
#include <qv/pmx/thread_safety.h>
#include <qv/rtlapi/RX_String.hpp>

#include <atomic>
#include <cstddef>
#include <exception>
#include <new>
#include <type_traits>

namespace com::kor::dal::nim::mt {

class TaskWaitBucket;

/**
 * A unit of work with an ID, a name, a public state and interrupt bits, and operations to wait for changes of
 * these. A task starts nothing by itself: a Thread, a ThreadPool or a direct call of run() runs it.
 *
 * Lifetime: the owner must not destroy a task while a thread runs it or waits for it.
 *
 * Exceptions: failures of the system reach the caller as RX_Exception.
 *
 * Thread safety: any thread may interrupt, wait for or query a task.
 */
class DALNIM_API Task : public Runnable
{
public:
    static constexpr const char CLASS_NAME[] = "Task";

    /** The states, one bit each. */
    enum TaskState : UInt32_t {
        /** May be started or queued. */
        TSF_READY = 1,
        /** Queued in a pool; no worker runs it yet. */
        TSF_QUEUED = 2,
        /** A thread is being started for it. */
        TSF_STARTING = 4,
        /** Its work is in progress. */
        TSF_RUNNING = 8,
        /** Its work has ended, normally or by an exception. */
        TSF_FINISHED = 16,
        /** A join has begun. */
        TSF_JOINED = 32,
        /** Its thread object is being destroyed. */
        TSF_DESTROYED = 64,
        /** Queued, starting or running. */
        TSF_MASK_ACTIVE = 14
    };

    /**
     * @param tgt      the target, which run() calls
     * @param destroy  makes this task an owner of `tgt`. If `tgt` is reference-counted, the task acquires a
     *                 reference now and releases it in its destructor; otherwise its destructor deletes
     *                 `tgt`. If construction fails, `tgt` remains the caller's
     * @param name     the name, used unchanged, or null
     * @param label    if `name` is null, the name is the label followed by the task's ID; null for "Task"
     * @throws std::logic_error  "Runnable target was NULL" if `tgt` is null
     */
    explicit Task(Runnable* tgt, bool destroy = false, const char* name = nullptr,
                  const char* label = nullptr);
    /** The target remains the caller's. */
    explicit Task(Runnable& tgt, const char* name = nullptr, const char* label = nullptr);
    // A string literal would convert to `destroy` silently and make the task an owner of its target.
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    Task(Runnable* tgt, T&& destroy, More&&... more) = delete;
    /**
     * Releases or deletes the target if this task owns it. An exception of the target's destructor is caught
     * and logged under the module "com.kor.dal.nim" with severity WARNING and the message "Unexpected
     * exception while destroying the target of a task". If the destructor ends the thread, the unwinding
     * continues.
     */
    ~Task() noexcept(false) override;

    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    /** @name Allocation */
    /** @{ */
    /**
     * Allocates a task, also of a derived class. Tasks of at most 248 bytes are allocated from a cache, since
     * often one thread creates a task and another one destroys it. The cache retains at most 2 MiB, and 62
     * blocks of each size for each thread. All of its memory comes from the global `operator new`. Nothing is
     * cached under the address sanitizer.
     */
    static void* operator new(std::size_t size); // NOLINT(cert-dcl54-cpp): the sized delete matches
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* block, std::size_t size) noexcept;
    static void operator delete(void* block, const std::nothrow_t&) noexcept;
    /** The global operators: construction at a given address, and alignment beyond that of `new`. */
    static void* operator new(std::size_t, void* place) noexcept
    {
        return place;
    }
    static void operator delete(void*, void*) noexcept {}
    static void* operator new(std::size_t size, std::align_val_t alignment)
    {
        return ::operator new(size, alignment);
    }
    static void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
    {
        return ::operator new(size, alignment, std::nothrow);
    }
    static void operator delete(void* block, std::size_t, std::align_val_t alignment) noexcept
    {
        ::operator delete(block, alignment);
    }
    static void operator delete(void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept
    {
        ::operator delete(block, alignment);
    }
    /** @} */

    /**
     * Runs the target on the calling thread. An exception of the target propagates; the task then remains
     * TSF_RUNNING and the thread's current task, until the caller changes that.
     */
    void run() override;

    /** Returns the current state, without a lock. */
    TaskState status() const noexcept
    {
        return static_cast<TaskState>(_state.load(std::memory_order_acquire) & ~HAS_WAITERS);
    }
    /** Returns true if the state is TSF_RUNNING. */
    bool running() const noexcept
    {
        return status() == TSF_RUNNING;
    }
    /** Returns the ID, which is unique in the process among tasks, threads and pools. It never changes. */
    TaskID_t taskId() const noexcept
    {
        return _id;
    }
    /** Returns the name: the one given, or the label followed by the ID. */
    String name() const;

    /**
     * Sets interrupt bits and wakes all waiting threads. The users of a task define the meaning of the bits.
     * @param bits  the bits to set; 0 sets bit 0
     * @return all bits that are set afterwards
     */
    unsigned long interrupt(unsigned long bits);
    /** Returns the interrupt bits and clears all of them except bit 31. */
    unsigned long interrupted();

    /**
     * Waits until the state is TSF_FINISHED.
     *
     * Compatibility: if the task has finished already, a call with `ms` other than 0 returns false
     * immediately. To check whether a task has finished, call with 0, or use status().
     * @param ms  time-out in milliseconds, of which the part below one second is taken as microseconds. 0
     *            does not wait
     * @return for 0, whether the task has finished; otherwise whether it finished during this wait
     */
    bool waitForCompletion(unsigned int ms) const;
    /**
     * Waits until the state or the interrupt bits change. Returns immediately if any interrupt bit is set.
     * @param ms  time-out in milliseconds; 0 does not wait
     */
    void waitForStateChange(unsigned int ms) const;

    /** Returns the task that the calling thread runs, or null. */
    static Task* currentTask();

protected:
    /** Constructs a task that is its own target, for a derived class that overrides run(). */
    explicit Task(const char* name, const char* label = nullptr);

    /**
     * Returns a copy of an exception, owned by the caller: a clone if it is a type::Cloneable, otherwise a
     * copy as the first of these that it is: std::ios_base::failure, bad_alloc, bad_cast, bad_typeid,
     * runtime_error, logic_error, exception.
     * @throws std::bad_cast  if the clone is not a std::exception
     */
    static std::exception* cloneError(const std::exception& e);

private:
    friend class TaskClosure;
    friend class TaskEvidence;
    friend class Thread;
    friend class ThreadPool;

    /**
     * The task that run() has finished last on the calling thread. Only for comparisons: its owner may have
     * destroyed it.
     */
    static const Task*& _last_finished() noexcept;

    /** Returns the clone of an exception that is a type::Cloneable, otherwise null. Throws as cloneError().
     */
    static std::exception* _cloneOf(const std::exception& e);
    /** Returns a copy as the first standard type that the exception is. */
    static std::exception* _standardCopyOf(const std::exception& e);

    void _set_state(TaskState ts);
    __attribute__((visibility("hidden"))) TaskWaitBucket& _wait_bucket() const noexcept;
    /**
     * Sets HAS_WAITERS and returns the state, whose next change then wakes the task's TaskWaitBucket. The
     * caller must hold the bucket's lock until it waits.
     */
    TaskState _mark_waiter() const DALNIM_REQUIRES(_wait_bucket());
    RX_String _make_name(const char* name, const char* label, TaskID_t id) const;
    /** Declared only; part of the fixed interface. */
    void _run_via_thread();
    void _run_via_threadpool();

    /** A bit beside the state: a thread may be waiting for this task in its TaskWaitBucket. */
    static constexpr UInt32_t HAS_WAITERS = 0x80000000;

    /** The state and HAS_WAITERS. A thread that replaces it while the bit is set must wake the bucket. */
    mutable std::atomic<UInt32_t> _state;
    const TaskID_t _id;
    /** The bits that interrupt() has set. */
    unsigned long _intbits DALNIM_GUARDED_BY(_wait_bucket());
    /** The target that run() calls; this object if it is its own target. */
    Runnable* const _target;
    /** Whether this task owns `_target`. */
    const bool _manage;
    RX_String _name;
};

}

#endif
