#ifndef DALNIM_MT_SRC_BLOCKALLOCATOR_HPP
#define DALNIM_MT_SRC_BLOCKALLOCATOR_HPP

#include <cstddef>

namespace com::kor::dal::nim::mt {

/**
 * A thread-caching allocator for tasks, their names and their closures, which one thread allocates and
 * another deallocates. Each thread caches free blocks of each size class in a magazine. Full magazines are
 * exchanged through a common depot of limited size.
 *
 * A free block is not accessed: it is probably in the cache of another processor.
 *
 * All blocks come from the global `operator new`, and may also be freed by the global `operator delete`.
 * Under the address sanitizer, and if the program but not the library is built with the thread sanitizer,
 * nothing is cached, since these tools observe the global operators.
 *
 * Thread safety: any thread may call any operation, also while it exits. No operation waits for a lock: if
 * another thread is using the depot, the caller falls back to the global operators.
 */
class BlockAllocator
{
public:
    /** Maximum size of the blocks in the depot, in bytes. */
    static constexpr std::size_t DEPOT_LIMIT = std::size_t{2} << 20;
    /** Size of the blocks of the largest size class, in bytes. Larger blocks are not cached. */
    static constexpr std::size_t LARGEST_BLOCK = 248;

    /** Returns the size of the block that contains `size` bytes; `size` itself if such blocks are not cached.
     */
    static constexpr std::size_t blockSize(std::size_t size) noexcept
    {
        return size <= LARGEST_BLOCK ? blockSizeOf(classOf(size)) : size;
    }

    /** Returns a block of at least `size` bytes, which must be at least 1. Throws `std::bad_alloc`. */
    static void* allocate(std::size_t size);
    /**
     * Deallocates a block.
     * @param size  the size with which it was allocated
     */
    static void deallocate(void* block, std::size_t size) noexcept;

    /** @name Size classes: 8, 24, 40 ... bytes, what a chunk of the C library's malloc() has room for */
    /** @{ */
    static constexpr std::size_t classOf(std::size_t size) noexcept
    {
        return (size + GRANULARITY - SMALLEST_BLOCK - 1) / GRANULARITY;
    }
    static constexpr std::size_t blockSizeOf(std::size_t sizeClass) noexcept
    {
        return sizeClass * GRANULARITY + SMALLEST_BLOCK;
    }
    /** @} */

private:
    /** Difference between the block sizes of two classes, in bytes. */
    static constexpr std::size_t GRANULARITY = 16;
    static constexpr std::size_t SMALLEST_BLOCK = 8;
};

}

#endif
