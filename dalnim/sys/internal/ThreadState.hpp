#ifndef DALNIM_SYS_INTERNAL_THREADSTATE_HPP
#define DALNIM_SYS_INTERNAL_THREADSTATE_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::mem {
template <class T>
class RcoRef;
}

namespace com::kor::dal::nim::mt {
class MutexOps;
class Task;
class Thread;
class ThreadPool;
}

namespace com::kor::dal::nim::sys {
class StackTrace;
}

namespace com::kor::dal::nim::sys::internal {

// Contexts stand above the thread state, which knows its own by name alone.
class CurrentContext;
/** A counted reference to the context of a thread. */
typedef mem::RcoRef<CurrentContext> CurrentContextRef;

/** A word of mode bits of a thread. */
typedef UInt32_t ThreadMode_t;

/**
 * What the library knows of one thread. It comes with the first current() on a thread, whoever
 * started it, and goes when the thread ends. It belongs to its thread alone and has no lock.
 */
class DALNIM_API ThreadState
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadState";

    /**
     * The calling thread's state, made on first use.
     * Throws `std::bad_alloc`, or a system_error with the number of the failed registration.
     */
    static ThreadState& current();

    ~ThreadState();

    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;

private:
    // First in memory, where programs that are built already read it, and `tid` last, so that the fields in
    // between keep their offsets.
    ThreadID_t _tid;

public:
    /** Bits whose meaning belongs to the users of ThreadStateBitHolder. Bit 0 is set from the start. */
    mutable ThreadMode_t mode;
    /** What this thread runs now, each null when there is none; not owned. */
    mt::Task* task;
    /** The object of this thread, null when none was started for it; not owned. */
    mt::Thread* thrd;
    /** The pool that this thread works for, or null; not owned. */
    mt::ThreadPool* pool;
    /** Kept for callers; the library has no use of it. */
    const mt::MutexOps* lock;
    /** The open tracks. */
    StackTrackState where;
    /** The thread's current context, never empty. */
    CurrentContextRef& contextRef;
    /** The kernel's thread ID. The child of a fork() finds its own here, also through an older reference. */
    const ThreadID_t& tid;

private:
    // A trace of a thread without a state is empty and must not make one: the failure to make one is
    // reported by an exception, which takes a trace.
    friend class sys::StackTrace;
    // Corrects the thread ID in the child of a fork(), whose only thread continues with its parent's state.
    friend void update_tid_in_child() noexcept;

    ThreadState();

    /** The calling thread's state, null when there is none. */
    static const ThreadState* find() noexcept;

    static CurrentContextRef& createContext();
    static void destroyContext(CurrentContextRef& context) noexcept;
};

}

#endif
