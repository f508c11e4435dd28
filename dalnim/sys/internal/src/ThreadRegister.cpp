#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/ThreadRegister.hpp>

#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/thread.h>

#include <memory>
#include <new>

namespace com::kor::dal::nim::sys::internal {

namespace {

/** The entry of the calling thread, or null. */
__attribute__((tls_model("initial-exec"))) __thread std::atomic<ThreadID_t>* own_entry = nullptr;
/** Whether the calling thread has entered without getting an entry. */
__attribute__((tls_model("initial-exec"))) __thread bool is_missing = false;

}

ThreadRegister::Block ThreadRegister::firstBlock;
std::atomic<unsigned int> ThreadRegister::missingCount;

/** Returns a free entry that now contains `tid`, or null if memory runs out. */
std::atomic<ThreadID_t>* ThreadRegister::claim(ThreadID_t tid) noexcept
{
    Block* block = &firstBlock;
    for (;;) {
        for (std::atomic<ThreadID_t>& entry : block->threads) {
            ThreadID_t free = 0;
            if (entry.load(std::memory_order_relaxed) == 0) {
                qv::perturb();
                // Ordered before the check of AlternateStack::isGivenToNewThreads().
                if (entry.compare_exchange_strong(free, tid, std::memory_order_seq_cst)) {
                    return &entry;
                }
            }
        }
        // Acquires a block that another thread has released by the exchange below.
        Block* next = block->next.load(std::memory_order_acquire);
        if (next == nullptr) {
            std::unique_ptr<Block> added(new (std::nothrow) Block());
            if (added == nullptr) {
                return nullptr;
            }
            qv::perturb();
            if (block->next.compare_exchange_strong(next, added.get(), std::memory_order_acq_rel)) {
                next = added.release();
            }
        }
        block = next;
    }
}

void ThreadRegister::enter() noexcept
{
    own_entry = claim(qv_si_thread_self());
    if (own_entry == nullptr) {
        is_missing = true;
        missingCount.fetch_add(1, std::memory_order_relaxed);
    }
}

void ThreadRegister::leave() noexcept
{
    if (own_entry != nullptr) {
        // Relaxed: the ID is all that is passed on. A thread that still finds it sends a signal that has no
        // effect.
        own_entry->store(0, std::memory_order_relaxed);
        own_entry = nullptr;
    } else if (is_missing) {
        is_missing = false;
        missingCount.fetch_sub(1, std::memory_order_relaxed);
    }
}

void ThreadRegister::keepCallerOnly() noexcept
{
    // Relaxed: the child has one thread.
    for (Block* block = &firstBlock; block != nullptr; block = block->next.load(std::memory_order_relaxed)) {
        for (std::atomic<ThreadID_t>& entry : block->threads) {
            const bool isOwn = &entry == own_entry;
            entry.store(isOwn ? qv_si_thread_self() : 0, std::memory_order_relaxed);
        }
    }
    missingCount.store(is_missing ? 1 : 0, std::memory_order_relaxed);
}

unsigned int ThreadRegister::missing() noexcept
{
    return missingCount.load(std::memory_order_relaxed);
}

}
