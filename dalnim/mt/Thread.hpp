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
 * A task that runs on a system thread of its own, under a copy of its starter's context. A target that
 * is a Task is moved through the same states.
 *
 * Joinable, it keeps a copy of the exception that ended the run for join(), after which it can be started
 * again. If copying throws, it keeps a copy of that exception instead, and `std::bad_alloc` if memory runs
 * out. Detached, it logs the exception and drops it, and cannot run again.
 *
 * A run may also end the thread, by pthread_exit or because it is cancelled. It is finished then like any
 * other, with its context cleared and no exception: join() returns null.
 *
 * One thread controls an object: start(), join() and the destructor are not guarded against each
 * other. The destructor does not wait; destroying a thread that still runs is the caller's fault.
 */
class DALNIM_API Thread : public Task
{
public:
    static constexpr const char CLASS_NAME[] = "Thread";

    /**
     * @param tgt     what runs; throws `std::logic_error`, "Runnable target was NULL", for null
     * @param destroy makes this object an owner of `tgt`: of a reference-counted one it acquires a
     *                reference now and releases it in its destructor, any other it deletes there. If
     *                construction fails, `tgt` remains the caller's
     * @param name    null for "Thread" and the task's number
     */
    explicit Thread(Runnable* tgt, bool joinable = true, bool destroy = false, const char* name = nullptr);
    /** The target stays the caller's. */
    explicit Thread(Runnable& tgt, bool joinable = true, const char* name = nullptr);
    /** A thread to derive from: the derived class replaces run(). */
    explicit Thread(bool joinable = true, const char* name = nullptr);
    // A name, or something that cannot be run, in the place of a flag.
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
     * Releases or deletes a target that it owns. If that is a task, and nothing else holds a reference to it,
     * its state becomes TSF_DESTROYED first. An exception of the target's destructor is caught and logged
     * under the module "com.kor.dal.nim" with severity WARNING and the message "Unexpected exception while
     * destroying the target of a thread"; only the unwinding of a thread that ends there passes.
     */
    ~Thread() noexcept(false) override;

    /** Runs the target. */
    void run() override;

    /**
     * Starts the thread. Throws `std::logic_error`, "Thread not ready to be started", and RX_Exception
     * if the system has no thread, which leaves this one starting; join() throws that exception again.
     * @param joinable whether it is to be joined, from now on
     * @param context  what the new thread gets a copy of, made here; null for the caller's current one
     */
    void start(bool joinable, const type::ContainerContext* context = nullptr);
    /** The same, joinable or not as before. */
    void start(const type::ContainerContext* context = nullptr);
    /** @name Start with a counted context */
    /** @{ */
    /** The same, with the context that `context` holds; empty for the caller's current one. */
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
    /** A new thread, started; the caller owns the object, which a failed start leaves behind. */
    static Thread* start(Runnable& tgt, bool joinable, const char* name,
                         const type::ContainerContext* context = nullptr);
    /** The same; with `destroy`, the object is an owner of `tgt`. Throws as the constructor. */
    static Thread* start(Runnable* tgt, bool joinable, bool destroy, const char* name,
                         const type::ContainerContext* context = nullptr);

    /** @name Start of new threads with a counted context */
    /** @{ */
    /** The same, with the context that `context` holds; empty for the caller's current one. */
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
    // Something else in the place of a flag; a context is meant only as the last argument.
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
     * Waits for the end of the run, without limit, and makes the thread ready to be started again.
     * Throws `std::logic_error`: "Thread is not joinable", "Target already joined, or never existed",
     * "Target already joined, or never started".
     * @return what ended the run, or null; it stays this object's until the next run
     */
    const std::exception* join();
    /** Whether it is to be joined. */
    bool joinable() const noexcept
    {
        return _joinable;
    }
    /** The number of the calling thread, whichever object it asks. */
    ThreadID_t threadId() const noexcept;

    /** The object of the calling thread; null on a thread that none was started for. */
    static Thread* currentThread();

protected:
    /** For a derived class: its name, or for null its label and its number. */
    Thread(bool joinable, const char* name, const char* label);
    /** Declared for the layout of the interface; nothing calls it. */
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

    /** Deletes a copy, but not the one that is used when memory runs out. */
    struct DeleteCopy
    {
        void operator()(std::exception* exception) const noexcept;
    };

    bool _joinable;
    bool _manage;
    /** Shadows of the members of Task with these names, which alone have an effect. */
    TaskState _state;
    Runnable* _target;
    /** The target if it is a task; this object if it is its own target. */
    Task* _targetAsTask;
    RX_Mutex _mu;
    /** With one reference, from the start of a joinable run to its join; null otherwise. */
    RX_ClosureM0S<Thread>* _closure;
    TaskID_t _id;
    RX_String _name;
    /** What ended the last joinable run. */
    std::unique_ptr<std::exception, DeleteCopy> _exception;
    /** What the new thread gets; an empty shell once it runs. */
    type::ContainerContextRef _contextRef;
};

}

#endif
