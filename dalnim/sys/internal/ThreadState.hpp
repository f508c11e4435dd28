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

// Contexts are in a higher layer: the class is only declared here.
class CurrentContext;
/** A reference to the context of a thread. */
typedef mem::RcoRef<CurrentContext> CurrentContextRef;

/** The mode bits of a thread. */
typedef UInt32_t ThreadMode_t;

/**
 * The state that the library stores for a thread. The first current() on a thread constructs it, also on
 * threads that the library did not start; it is destroyed when the thread ends.
 *
 * Thread safety: only its own thread may use a state.
 */
class DALNIM_API ThreadState
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadState";

    /**
     * Returns the state of the calling thread. The first call on a thread constructs it.
     * @throws std::bad_alloc     if memory runs out
     * @throws sys::system_error  if the system cannot register the state, with its error number
     */
    static ThreadState& current();

    ~ThreadState();

    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;

private:
    // Compatibility: existing programs read the thread ID at offset 0. `tid` is last, so that the fields
    // between keep their offsets.
    ThreadID_t _tid;

public:
    /** Mode bits, which the users of ThreadStateBitHolder define. Bit 0 is set initially. */
    mutable ThreadMode_t mode;
    /** The task that this thread runs, or null; not owned. */
    mt::Task* task;
    /** The Thread object that has started this thread, or null; not owned. */
    mt::Thread* thrd;
    /** The pool whose task this thread runs, or null; not owned. */
    mt::ThreadPool* pool;
    /** For callers; the library does not use it. */
    const mt::MutexOps* lock;
    /** The stack of tracks. */
    StackTrackState where;
    /** The current context of the thread; never empty. */
    CurrentContextRef& contextRef;
    /** The kernel's thread ID. In the child of a fork it is the child's, also through an existing reference.
     */
    const ThreadID_t& tid;

private:
    // A StackTrace must not construct the state: if that fails, the exception captures a StackTrace.
    friend class sys::StackTrace;
    // Updates the thread ID in the child of a fork, whose thread continues with the state of the parent's.
    friend void update_tid_in_child() noexcept;

    ThreadState();

    /** Returns the state of the calling thread, or null. */
    static const ThreadState* find() noexcept;

    // Defined in src/CurrentContext.cpp, where the class is complete.
    static CurrentContextRef& createContext();
    static void destroyContext(CurrentContextRef& context) noexcept;
};

}

#endif
