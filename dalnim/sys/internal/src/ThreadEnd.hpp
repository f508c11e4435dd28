#ifndef DALNIM_SYS_INTERNAL_SRC_THREADEND_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADEND_HPP

#include <qv/pmx/thread.h>

#include <atomic>

namespace com::kor::dal::nim::sys::internal {

/**
 * Has a function called at the end of each thread that asks for it. Such an object stands in static storage,
 * and can be asked before any constructor has run and to the very end of the process.
 *
 * The end of the main thread is that of the process, and calls nothing.
 *
 * Not left to the destructor of a `thread_local` object: the first use of such an object waits for the
 * lock of the dynamic linker, and its holder may be waiting for this thread, in an initialiser of a
 * library that is being loaded.
 */
class ThreadEnd
{
public:
    explicit constexpr ThreadEnd(void (*end_function)()) noexcept
        : function(end_function), state(State::NEW), key(0)
    {
    }

    ThreadEnd(const ThreadEnd&) = delete;
    ThreadEnd& operator=(const ThreadEnd&) = delete;

    /** Asks for the call on this thread. False when the system refuses it: nothing will be called. */
    bool await() noexcept;

private:
    enum class State : unsigned char { NEW, READY, REFUSED };

    static void call(void* self);

    State makeKey() noexcept;

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
