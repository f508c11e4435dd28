#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/BlockAllocator.hpp>

#include <dalnim/sys/internal/src/ThreadCacheState.hpp>
#include <qv/pmx/TryLock.hpp>
#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/sanitizers.hpp>
#include <qv/pmx/thread_safety.h>

#include <atomic>
#include <new>
#include <utility>

// Defined by the run-time libraries of the sanitizers, if the program contains one.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" __attribute__((weak)) void __asan_init();
extern "C" __attribute__((weak)) void __tsan_init();
// NOLINTEND(bugprone-reserved-identifier)

namespace com::kor::dal::nim::mt {

namespace {

/**
 * Returns false under the address sanitizer, which detects a use after free only if blocks are freed, and
 * under a thread sanitizer that does not see how this library passes blocks from thread to thread.
 */
bool isCachingAllowed() noexcept
{
    return __asan_init == nullptr && (QV_THREAD_SANITIZER != 0 || __tsan_init == nullptr);
}

constexpr std::size_t CLASSES = BlockAllocator::classOf(BlockAllocator::LARGEST_BLOCK) + 1;

static_assert(BlockAllocator::blockSize(BlockAllocator::LARGEST_BLOCK) == BlockAllocator::LARGEST_BLOCK,
              "LARGEST_BLOCK must be the block size of a class");

/** Free blocks of one size class. */
struct Magazine
{
    /** Chosen for a size of 512 bytes. */
    static constexpr std::size_t CAPACITY = 62;

    /** The next magazine in the depot. */
    Magazine* next = nullptr;
    std::size_t count = 0;
    void* blocks[CAPACITY];
};

/** Returns the number of bytes in a full magazine of a size class. */
constexpr std::size_t bytesOf(std::size_t sizeClass) noexcept
{
    return BlockAllocator::blockSizeOf(sizeClass) * Magazine::CAPACITY;
}

void deleteBlocks(Magazine& magazine) noexcept
{
    while (magazine.count != 0) {
        ::operator delete(magazine.blocks[--magazine.count]);
    }
}

/** The full magazines of all threads, and as many empty ones as full ones have been removed. */
class Depot
{
public:
    /**
     * Exchanges an empty magazine, or null, for a full one. Returns false if there is none, or if the depot
     * is locked.
     */
    bool tryRefill(std::size_t sizeClass, Magazine*& magazine) noexcept
    {
        if (!hasFull[sizeClass].load(std::memory_order_relaxed) || !lock.tryLock()) {
            return false;
        }
        qv::perturb();
        Magazine* const filled = full[sizeClass];
        if (filled != nullptr) {
            full[sizeClass] = filled->next;
            bytes -= bytesOf(sizeClass);
            if (magazine != nullptr) {
                magazine->next = std::exchange(empty, magazine);
            }
            magazine = filled;
        }
        hasFull[sizeClass].store(full[sizeClass] != nullptr, std::memory_order_relaxed);
        lock.unlock();
        return filled != nullptr;
    }
    /**
     * Exchanges a full magazine for an empty one, or for null if there is none. Returns false if the depot is
     * full or locked.
     */
    bool tryEmpty(std::size_t sizeClass, Magazine*& magazine) noexcept
    {
        if (!lock.tryLock()) {
            return false;
        }
        qv::perturb();
        const bool hasCapacity = bytes + bytesOf(sizeClass) <= BlockAllocator::DEPOT_LIMIT;
        if (hasCapacity) {
            magazine->next = std::exchange(full[sizeClass], magazine);
            bytes += bytesOf(sizeClass);
            hasFull[sizeClass].store(true, std::memory_order_relaxed);
            magazine = empty;
            if (empty != nullptr) {
                empty = empty->next;
            }
        }
        lock.unlock();
        return hasCapacity;
    }

private:
    qv::TryLock lock;
    /** Changed with the lock held, also read without it. Relaxed: the magazines are read under the lock. */
    std::atomic<bool> hasFull[CLASSES] = {};
    Magazine* full[CLASSES] DALNIM_GUARDED_BY(lock) = {};
    Magazine* empty DALNIM_GUARDED_BY(lock) = nullptr;
    /** Size of the blocks of all full magazines. */
    std::size_t bytes DALNIM_GUARDED_BY(lock) = 0;
};

Depot depot;

/** The magazines of one thread. */
struct Cache
{
    /** The magazine of each size class, or null. */
    Magazine* magazines[CLASSES];
    sys::internal::ThreadCacheState state;
};

__attribute__((tls_model("initial-exec"))) thread_local Cache cache = {{}, {false, false}};

/** The exit hook: deletes the blocks and the magazines of the thread. */
void destroyCache()
{
    cache.state.exit();
    for (Magazine*& magazine : cache.magazines) {
        if (magazine != nullptr) {
            deleteBlocks(*magazine);
            delete std::exchange(magazine, nullptr);
        }
    }
}

sys::internal::ThreadExitHook exit_hook(destroyCache);

bool activate() noexcept
{
    return cache.state.isActive || (isCachingAllowed() && cache.state.activate(exit_hook));
}

/** Allocates a block for which the magazine of the thread has none. */
__attribute__((noinline)) void* allocateOutsideMagazine(std::size_t size)
{
    if (size <= BlockAllocator::LARGEST_BLOCK && activate()) {
        Magazine*& magazine = cache.magazines[BlockAllocator::classOf(size)];
        if (depot.tryRefill(BlockAllocator::classOf(size), magazine)) {
            return magazine->blocks[--magazine->count];
        }
    }
    // A whole block also if this thread does not cache: another thread may deallocate it.
    return ::operator new(isCachingAllowed() ? BlockAllocator::blockSize(size) : size);
}

/** Deallocates a block for which the magazine of the thread has no room. */
__attribute__((noinline)) void deallocateOutsideMagazine(void* block, std::size_t size) noexcept
{
    if (size > BlockAllocator::LARGEST_BLOCK || !activate()) {
        ::operator delete(block);
        return;
    }
    Magazine*& magazine = cache.magazines[BlockAllocator::classOf(size)];
    if (magazine != nullptr && !depot.tryEmpty(BlockAllocator::classOf(size), magazine)) {
        deleteBlocks(*magazine);
    }
    if (magazine == nullptr) {
        magazine = new (std::nothrow) Magazine;
    }
    if (magazine == nullptr) {
        ::operator delete(block);
        return;
    }
    magazine->blocks[magazine->count++] = block;
}

}

void* BlockAllocator::allocate(std::size_t size)
{
    if (size <= LARGEST_BLOCK) {
        Magazine* const magazine = cache.magazines[BlockAllocator::classOf(size)];
        if (magazine != nullptr && magazine->count != 0) {
            return magazine->blocks[--magazine->count];
        }
    }
    return allocateOutsideMagazine(size);
}

void BlockAllocator::deallocate(void* block, std::size_t size) noexcept
{
    if (size <= LARGEST_BLOCK) {
        Magazine* const magazine = cache.magazines[BlockAllocator::classOf(size)];
        if (magazine != nullptr && magazine->count != Magazine::CAPACITY) {
            magazine->blocks[magazine->count++] = block;
            return;
        }
    }
    deallocateOutsideMagazine(block, size);
}

}
