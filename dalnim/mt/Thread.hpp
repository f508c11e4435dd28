#ifndef DALNIM_MT_THREAD_HPP
#define DALNIM_MT_THREAD_HPP

#include <dalnim/mt/Task.hpp>
#include <dalnim/type/ContainerContext.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>

#include <memory>

template <class T>
class RX_ClosureM0S;

namespace qv {
class CaughtException;
}

namespace com::kor::dal::nim::mt {

class CondSem;
class MutexOps;

/**
 * A task that runs on a system thread of its own, with a copy of the context of the thread that starts it. If
 * its target is a Task, the target's state follows the thread's.
 *
 * A joinable thread stores a copy of the exception that ended the run, which join() returns. It can be
 * started again afterwards. If copying throws, the thread stores a copy of that exception instead, or
 * `std::bad_alloc` if memory runs out. A detached thread logs the exception and discards it; it cannot run
 * again. A thread that has no memory for its own state does not call its target, and is finished with that
 * exception.
 *
 * The run may also end the thread, by pthread_exit() or by cancellation. The thread is finished then as by
 * any other end, with its context cleared and without an exception: join() returns null.
 *
 * Lifetime: the destructor does not wait. The owner must not destroy a thread that still runs.
 *
 * Thread safety: start(), join() and the destructor must not be called concurrently. For the other
 * operations, see Task.
 */
class DALNIM_API Thread : public Task
{
public:
    static constexpr const char CLASS_NAME[] = "Thread";

    /**
     * @param tgt       the target, which runs on the thread
     * @param joinable  true for a joinable thread, false for a detached one; start() may change it
     * @param destroy   makes this object an owner of `tgt`. If `tgt` is reference-counted, the thread
     *                  acquires a reference now and releases it in its destructor; otherwise its destructor
     *                  deletes `tgt`. If construction fails, `tgt` remains the caller's
     * @param name      the name; null for "Thread" followed by the task's ID
     * @throws std::logic_error  "Runnable target was NULL" if `tgt` is null
     */
    explicit Thread(Runnable* tgt, bool joinable = true, bool destroy = false, const char* name = nullptr);
    /** The target remains the caller's. */
    explicit Thread(Runnable& tgt, bool joinable = true, const char* name = nullptr);
    /** Constructs a thread that is its own target, for a derived class that overrides run(). */
    explicit Thread(bool joinable = true, const char* name = nullptr);
    // A name, or an object that is not a Runnable, would convert to a flag silently.
    template <class T, class... More,
              class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN && !FlagArgument<T>::IS_TARGET>>
    explicit Thread(T&& joinable, More&&... more) = delete;
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    Thread(Runnable* tgt, T&& joinable, More&&... more) = delete;
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    Thread(Runnable* tgt, bool joinable, T&& destroy, More&&... more) = delete;
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    Thread(Runnable& tgt, T&& joinable, More&&... more) = delete;
    /**
     * Releases or deletes the target if this object owns it. If the target is a task, and there is no other
     * reference to it, its state is set to TSF_DESTROYED first. An exception of the target's destructor is
     * caught and logged under the module "com.kor.dal.nim" with severity WARNING and the message "Unexpected
     * exception while destroying the target of a thread". If the destructor ends the calling thread, the
     * unwinding continues.
     */
    ~Thread() noexcept(false) override;

    /** Runs the target on the calling thread. The new thread calls this. */
    void run() override;

    /**
     * Starts the thread.
     * @param joinable  true for a joinable thread, false for a detached one; replaces the constructor's value
     * @param context   the context to copy for the new thread, on the calling thread; null for the calling
     *                  thread's current one
     * @throws std::logic_error  "Thread not ready to be started" if the state is not TSF_READY
     * @throws RX_Exception      if the system cannot create the thread. The state remains TSF_STARTING; if
     *                           the thread is joinable, join() throws the exception again
     */
    void start(bool joinable, const type::ContainerContext* context = nullptr);
    /** Starts the thread, joinable or detached as before. */
    void start(const type::ContainerContext* context = nullptr);
    /** @name Start with a reference to a context */
    /** @{ */
    /** As above, with a reference to the context; empty for the calling thread's current one. */
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    void start(bool joinable, const mem::ConstRcoRef<T>& context)
    {
        start(joinable, static_cast<const type::ContainerContext*>(context.get()));
    }
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    void start(const mem::ConstRcoRef<T>& context)
    {
        start(static_cast<const type::ContainerContext*>(context.get()));
    }
    /** @} */
    /**
     * Constructs a thread and starts it. Returns the new object, owned by the caller. If the start fails, the
     * object is not deleted.
     */
    static Thread* start(Runnable& tgt, bool joinable, const char* name,
                         const type::ContainerContext* context = nullptr);
    /** As above. `destroy` and the exceptions are those of the constructor. */
    static Thread* start(Runnable* tgt, bool joinable, bool destroy, const char* name,
                         const type::ContainerContext* context = nullptr);

    /** @name Start of new threads with a reference to a context */
    /** @{ */
    /** As above, with a reference to the context; empty for the calling thread's current one. */
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    static Thread* start(Runnable& tgt, bool joinable, const char* name, const mem::ConstRcoRef<T>& context)
    {
        return start(tgt, joinable, name, static_cast<const type::ContainerContext*>(context.get()));
    }
    template <class T, class = std::enable_if_t<IS_CONTEXT<T>>>
    static Thread* start(Runnable* tgt, bool joinable, bool destroy, const char* name,
                         const mem::ConstRcoRef<T>& context)
    {
        return start(tgt, joinable, destroy, name, static_cast<const type::ContainerContext*>(context.get()));
    }
    /** @} */
    // Other arguments would convert to a flag silently; a context may only be the last argument.
    template <class T, class... More,
              class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN && !FlagArgument<T>::IS_TARGET
                                       && (sizeof...(More) != 0
                                           || (!FlagArgument<T>::IS_CONTEXT_POINTER
                                               && !FlagArgument<T>::IS_CONTEXT_REFERENCE))>>
    void start(T&& joinable, More&&... more) = delete;
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    static Thread* start(Runnable& tgt, T&& joinable, More&&... more) = delete;
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    static Thread* start(Runnable* tgt, T&& joinable, More&&... more) = delete;
    template <class T, class... More, class = std::enable_if_t<FlagArgument<T>::IS_MISTAKEN>>
    static Thread* start(Runnable* tgt, bool joinable, T&& destroy, More&&... more) = delete;

    /**
     * Waits for the end of the run, without limit. The state is TSF_READY afterwards: the thread can be
     * started again.
     * @return the exception that ended the run, or null. It is owned by this object and valid until the next
     *         run
     * @throws std::logic_error  "Thread is not joinable" if the thread is detached; "Target already joined,
     *                           or never existed" or "Target already joined, or never started" if there is no
     *                           run to join
     */
    const std::exception* join();
    /** Returns true if the thread is joinable, false if it is detached. */
    bool joinable() const noexcept
    {
        return _joinable;
    }
    /**
     * Defines whether a thread that start() starts afterwards gets the name of this object in the kernel,
     * where `top -H`, `ps -L`, debuggers and profilers show it. It does not by default, but has the name of
     * the thread that starts it. The kernel stores 15 bytes; a longer name is truncated, in front of the
     * UTF-8 character that would be cut. Must not be called concurrently with start().
     */
    void setKernelName(bool isSet = true) noexcept
    {
        _isKernelNameSet = isSet;
    }
    /** Returns the thread ID of the calling thread, not of the thread that this object has started. */
    ThreadID_t threadId() const noexcept;

    /** Returns the object of the calling thread, or null if no Thread object has started it. */
    static Thread* currentThread();

protected:
    /** As above, with a label that is followed by the ID if `name` is null. */
    Thread(bool joinable, const char* name, const char* label);
    /** Declared only; part of the fixed interface. */
    Thread(Runnable* tgt, bool joinable, bool destroy, const char* name, MutexOps& mux, CondSem& sem,
           mem::RefCntObject* object);

private:
    void run_joinable();
    void run_detached();
    void run_pre();
    void run_post();
    void setBothStates(TaskState ts);
    std::exception* copyForJoin(qv::CaughtException caught) const;
    void report(const qv::CaughtException& caught) const;

    /** Deletes an exception, except the static one that is used if memory runs out. */
    struct DeleteCopy
    {
        void operator()(std::exception* exception) const noexcept;
    };

    bool _joinable;
    /** Whether this object owns `_target`. */
    bool _manage;
    /** Whether the thread gets the name of this object in the kernel. */
    bool _isKernelNameSet = false;
    /** Not in use: shadows the member of Task, as do `_id` and `_name`. */
    TaskState _state;
    /** The target; this object if it is its own target. */
    Runnable* _target;
    /** The target if it is a task, otherwise null; this object if it is its own target. */
    Task* _targetAsTask;
    /** Not in use. */
    RX_Mutex _mu;
    /** With one reference, from the start of a joinable run until join(); otherwise null. */
    RX_ClosureM0S<Thread>* _closure;
    TaskID_t _id;
    RX_String _name;
    /** The exception that ended the last joinable run, or null. */
    std::unique_ptr<std::exception, DeleteCopy> _exception;
    /** The context for the new thread; without entries once the thread runs. */
    type::ContainerContextRef _contextRef;
};

}

#endif
