#ifndef DALNIM_MT_SRC_CLOSUREALLOCATOR_HPP
#define DALNIM_MT_SRC_CLOSUREALLOCATOR_HPP

#include <cstddef>

namespace com::kor::dal::nim::mt {

/**
 * A thread-caching allocator for task closures, which one thread allocates and another deallocates. Each
 * thread caches free blocks in a magazine of its own. Full magazines are exchanged through a common depot of
 * limited size.
 *
 * Thread safety: any thread may call any operation, also while it exits. No operation waits for a lock: if
 * another thread is using the depot, the caller falls back to `operator new` and `operator delete`.
 */
class ClosureAllocator
{
public:
    /**
     * Size of every block, in bytes. A closure contains a mutex, whose size depends on the processor. The
     * allocator of the C library allocates 113 to 120 bytes from the same 128.
     */
    static constexpr std::size_t BLOCK_SIZE = 120;

    /** Returns a block of BLOCK_SIZE bytes. Throws `std::bad_alloc`. */
    static void* allocate();
    static void deallocate(void* block) noexcept;
};

}

#endif
