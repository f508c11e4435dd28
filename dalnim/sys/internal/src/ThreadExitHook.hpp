#ifndef DALNIM_SYS_INTERNAL_SRC_THREADEXITHOOK_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADEXITHOOK_HPP

#include <qv/pmx/thread.h>

#include <atomic>

namespace com::kor::dal::nim::sys::internal {

/**
 * Calls a function when a thread exits, on each thread that has armed the hook. Objects must be in static
 * storage. They can be armed before any constructor has run and until the process has ended.
 *
 * On the main thread the function is not called, since the process ends with it.
 *
 * This replaces the destructor of a `thread_local` object. The first use of such an object waits for the lock
 * of the dynamic linker. The holder of that lock may be waiting for this thread, in an initialiser of a
 * library that is being loaded.
 *
 * Thread safety: any thread may call arm().
 */
class ThreadExitHook
{
public:
    explicit constexpr ThreadExitHook(void (*exit_function)()) noexcept
        : function(exit_function), state(State::NEW), key(0)
    {
    }

    ThreadExitHook(const ThreadExitHook&) = delete;
    ThreadExitHook& operator=(const ThreadExitHook&) = delete;

    /** Arms the hook for the calling thread. Returns false if the system refuses it. */
    bool arm() noexcept;

private:
    enum class State : unsigned char {
        /** The key has not been created yet. */
        NEW,
        /** The key exists. */
        READY,
        /** The system has refused to create the key. */
        FAILED
    };

    static void call(void* self);

    State createKey() noexcept;

    void (*const function)();
    /**
     * Leaves NEW once, under InitLock. The store releases the key to a thread whose first load, an acquire,
     * sees it. The loads under the lock may be relaxed: the lock orders them after the store.
     */
    std::atomic<State> state;
    si_thread_key_t key;
};

}

#endif
