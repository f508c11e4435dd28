#ifndef DALNIM_MT_SRC_BLOCKSTOCK_HPP
#define DALNIM_MT_SRC_BLOCKSTOCK_HPP

#include <cstddef>

namespace com::kor::dal::nim::mt {

/**
 * The storage of task closures, which one thread takes and another gives back: it is kept for the next
 * ones. A thread deals with its own shelf; full shelves go through a depot that all have in common and
 * that keeps a limited number.
 *
 * Thread safety: every operation may be called from any thread, also one that is ending. Nobody waits
 * for a lock here: who finds the depot in use goes to the general allocator.
 */
class BlockStock
{
public:
    /** No block is larger. */
    static constexpr std::size_t BLOCK_SIZE = 112;

    /** A block. Throws `std::bad_alloc`. */
    static void* take();
    static void give(void* block) noexcept;
};

}

#endif
