#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/BlockStock.hpp>

#include <dalnim/sys/internal/src/ThreadEnd.hpp>
#include <qv/pmx/src/perturb.hpp>

#include <atomic>
#include <new>

namespace com::kor::dal::nim::mt {

namespace {

// The address sanitizer must see each block end.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool IS_KEPT = false;
#else
constexpr bool IS_KEPT = true;
#endif

constexpr unsigned int SHELF_SIZE = 64;
constexpr unsigned int DEPOT_SIZE = 128;

/** A block that nobody uses. */
struct Block
{
    Block* next;
};

void destroyAll(Block* first) noexcept
{
    while (first != nullptr) {
        Block* const next = first->next;
        ::operator delete(first);
        first = next;
    }
}

/** Full shelves. */
class Depot
{
public:
    /** The blocks of a shelf, linked; null when there is none to be had at once. */
    Block* take() noexcept
    {
        if (isEmpty.load(std::memory_order_relaxed) || isInUse.exchange(true, std::memory_order_acquire)) {
            return nullptr;
        }
        qv::perturb();
        Block* const shelf = count != 0 ? shelves[--count] : nullptr;
        isEmpty.store(count == 0, std::memory_order_relaxed);
        isInUse.store(false, std::memory_order_release);
        return shelf;
    }
    /** Takes over a shelf, if there is room and that takes no waiting. */
    bool give(Block* shelf) noexcept
    {
        if (isInUse.exchange(true, std::memory_order_acquire)) {
            return false;
        }
        qv::perturb();
        const bool hasRoom = count != DEPOT_SIZE;
        if (hasRoom) {
            shelves[count++] = shelf;
            isEmpty.store(false, std::memory_order_relaxed);
        }
        isInUse.store(false, std::memory_order_release);
        return hasRoom;
    }

private:
    /** The lock: who finds it set does without. */
    std::atomic<bool> isInUse{false};
    std::atomic<bool> isEmpty{true};
    unsigned int count = 0;
    Block* shelves[DEPOT_SIZE] = {};
};

Depot depot;

/** The blocks that a thread has for itself. */
struct Shelf
{
    Block* first;
    unsigned int count;
    /** Nothing is put here until the end of the thread is seen to, nor from then on. */
    bool isOpen;
    bool isOver;
};

__attribute__((tls_model("initial-exec"))) thread_local Shelf shelf = {nullptr, 0, false, false};

/** Clears the shelf at the end of its thread. */
void endShelf()
{
    shelf.isOpen = false;
    shelf.isOver = true;
    destroyAll(shelf.first);
    shelf.first = nullptr;
}

sys::internal::ThreadEnd thread_end(endShelf);

void openShelf() noexcept
{
    shelf.isOpen = !shelf.isOver && thread_end.await();
}

void* takeFromDepot()
{
    if (shelf.isOpen) {
        if (Block* const first = depot.take()) {
            shelf.first = first->next;
            shelf.count = SHELF_SIZE - 1;
            return first;
        }
    }
    return ::operator new(BlockStock::BLOCK_SIZE);
}

}

void* BlockStock::take()
{
    if (Block* const block = shelf.first) {
        shelf.first = block->next;
        --shelf.count;
        return block;
    }
    if (IS_KEPT && !shelf.isOpen) {
        openShelf();
    }
    return takeFromDepot();
}

void BlockStock::give(void* block) noexcept
{
    if (IS_KEPT && !shelf.isOpen) {
        openShelf();
    }
    if (!shelf.isOpen) {
        ::operator delete(block);
        return;
    }
    if (shelf.count == SHELF_SIZE) {
        if (!depot.give(shelf.first)) {
            destroyAll(shelf.first);
        }
        shelf.first = nullptr;
        shelf.count = 0;
    }
    shelf.first = new (block) Block{shelf.first};
    ++shelf.count;
}

}
