#ifndef DALNIM_SYS_INTERNAL_SRC_THREADREGISTER_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADREGISTER_HPP

#include <dalnim/Primitives.hpp>

#include <atomic>
#include <cstddef>

namespace com::kor::dal::nim::sys::internal {

/**
 * The kernel's IDs of the threads that have a ThreadState. A thread enters when its state is constructed and
 * leaves when it is destroyed, without a lock. The memory of the register is never freed, so that any thread
 * can read it at any time, also in a signal handler.
 */
class ThreadRegister
{
public:
    ThreadRegister() = delete;

    /** Adds the calling thread. If memory runs out, the thread is only counted: see missing(). */
    static void enter() noexcept;
    /** Removes the calling thread. */
    static void leave() noexcept;
    /** Removes all threads but the calling one, which is the only one of the child of a fork. */
    static void keepCallerOnly() noexcept;

    /** Returns the number of threads that could not be added. */
    static unsigned int missing() noexcept;

    /** Calls `visit` with the ID of each thread. Threads that start or end during the call may be left out.
     */
    template <class Visit>
    static void forEach(Visit visit) noexcept
    {
        for (const Block* block = &firstBlock; block != nullptr;
             block = block->next.load(std::memory_order_acquire)) {
            for (const std::atomic<ThreadID_t>& entry : block->threads) {
                const ThreadID_t tid = entry.load(std::memory_order_seq_cst);
                if (tid != 0) {
                    visit(tid);
                }
            }
        }
    }

private:
    struct Block
    {
        static constexpr std::size_t SIZE = 126;

        /**
         * Thread IDs, which are all that is passed on; 0 marks a free entry. Entering and iterating are
         * sequentially consistent: see claim(). Otherwise relaxed: to find a free entry, and to leave it.
         */
        std::atomic<ThreadID_t> threads[SIZE];
        /** Released by claim() after the block has been constructed, and acquired before it is read. */
        std::atomic<Block*> next;
    };

    static std::atomic<ThreadID_t>* claim(ThreadID_t tid) noexcept;

    // Zero-initialised, since threads enter before any constructor has run.
    static Block firstBlock;
    /** Relaxed: a count. */
    static std::atomic<unsigned int> missingCount;
};

}

#endif
