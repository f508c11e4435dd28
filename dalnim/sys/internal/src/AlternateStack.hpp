#ifndef DALNIM_SYS_INTERNAL_SRC_ALTERNATESTACK_HPP
#define DALNIM_SYS_INTERNAL_SRC_ALTERNATESTACK_HPP

#include <cstddef>

namespace com::kor::dal::nim::sys::internal {

/**
 * The stack on which signal handlers of a thread run, so that they can run when its own stack is exhausted.
 * A thread that already has such a stack, of the application, keeps it.
 *
 * The memory is a convenience: if the system refuses it, or if the limit of the process for its address space
 * or its data would then leave less than 4 MB, the thread continues without such a stack.
 */
class AlternateStack
{
public:
    AlternateStack() = delete;

    /** Has each thread that constructs its ThreadState afterwards call giveCaller(). */
    static void giveToNewThreads() noexcept;
    /** Returns true after giveToNewThreads(). */
    static bool isGivenToNewThreads() noexcept;

    /**
     * Gives the calling thread a stack, unless it has one. It is freed when the thread ends. Returns false
     * if there is no memory for it.
     */
    static bool giveCaller() noexcept;
    /** Gives a thread of this process a stack, in a signal handler of that thread. Returns false on failure.
     */
    static bool give(int tid, unsigned int timeoutMs) noexcept;

    /**
     * Has the calling thread own `stack` and use it after the return from the signal handler whose context
     * this is, unless it has a stack. Returns false in that case.
     */
    static bool adopt(void* stack, std::size_t size, void* context) noexcept;
    /** Frees the stack that the calling thread owns, if there is one. */
    static void release() noexcept;
};

}

#endif
