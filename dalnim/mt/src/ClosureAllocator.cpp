#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/ClosureAllocator.hpp>

#include <dalnim/sys/internal/src/ThreadCacheState.hpp>
#include <qv/pmx/TryLock.hpp>
#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/sanitizers.hpp>
#include <qv/pmx/thread_safety.h>

#include <atomic>
#include <new>

namespace com::kor::dal::nim::mt {

namespace {

// Caching is off under the address sanitizer, which detects a use after free only if blocks are freed.
constexpr bool IS_CACHING = QV_ADDRESS_SANITIZER == 0;

/** Number of blocks in a full magazine. */
constexpr unsigned int MAGAZINE_SIZE = 64;
/** Maximum number of magazines in the depot. */
constexpr unsigned int DEPOT_SIZE = 128;

/** A free block. */
struct Block
{
    Block* next;
};

void deleteAll(Block* first) noexcept
{
    while (first != nullptr) {
        Block* const next = first->next;
        ::operator delete(first);
        first = next;
    }
}

/** The full magazines of all threads. */
class Depot
{
public:
    /** Removes a magazine and returns its blocks. Returns null if the depot is empty or locked. */
    Block* tryPop() noexcept
    {
        if (isEmpty.load(std::memory_order_relaxed) || !lock.tryLock()) {
            return nullptr;
        }
        qv::perturb();
        Block* const blocks = count != 0 ? magazines[--count] : nullptr;
        isEmpty.store(count == 0, std::memory_order_relaxed);
        lock.unlock();
        return blocks;
    }
    /** Adds the blocks of a magazine. Returns false if the depot is full or locked. */
    bool tryPush(Block* blocks) noexcept
    {
        if (!lock.tryLock()) {
            return false;
        }
        qv::perturb();
        const bool hasCapacity = count != DEPOT_SIZE;
        if (hasCapacity) {
            magazines[count++] = blocks;
            isEmpty.store(false, std::memory_order_relaxed);
        }
        lock.unlock();
        return hasCapacity;
    }

private:
    qv::TryLock lock;
    /** Set with the lock held, also read without it. */
    std::atomic<bool> isEmpty{true};
    unsigned int count DALNIM_GUARDED_BY(lock) = 0;
    Block* magazines[DEPOT_SIZE] DALNIM_GUARDED_BY(lock) = {};
};

Depot depot;

/** The free blocks of one thread. */
struct Magazine
{
    Block* first;
    unsigned int count;
    sys::internal::ThreadCacheState cache;
};

__attribute__((tls_model("initial-exec"))) thread_local Magazine magazine = {nullptr, 0, {false, false}};

/** The exit hook: deletes the blocks of the thread. */
void destroyMagazine()
{
    magazine.cache.exit();
    deleteAll(magazine.first);
    magazine.first = nullptr;
}

sys::internal::ThreadExitHook exit_hook(destroyMagazine);

void* allocateFromDepot()
{
    if (magazine.cache.isActive) {
        if (Block* const first = depot.tryPop()) {
            magazine.first = first->next;
            magazine.count = MAGAZINE_SIZE - 1;
            return first;
        }
    }
    return ::operator new(ClosureAllocator::BLOCK_SIZE);
}

}

void* ClosureAllocator::allocate()
{
    if (Block* const block = magazine.first) {
        magazine.first = block->next;
        --magazine.count;
        return block;
    }
    if (IS_CACHING && !magazine.cache.isActive) {
        magazine.cache.activate(exit_hook);
    }
    return allocateFromDepot();
}

void ClosureAllocator::deallocate(void* block) noexcept
{
    if (IS_CACHING && !magazine.cache.isActive) {
        magazine.cache.activate(exit_hook);
    }
    if (!magazine.cache.isActive) {
        ::operator delete(block);
        return;
    }
    if (magazine.count == MAGAZINE_SIZE) {
        if (!depot.tryPush(magazine.first)) {
            deleteAll(magazine.first);
        }
        magazine.first = nullptr;
        magazine.count = 0;
    }
    magazine.first = new (block) Block{magazine.first};
    ++magazine.count;
}

}
