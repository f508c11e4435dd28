#ifndef DALNIM_TYPE_CONTEXTSTATISTICS_HPP
#define DALNIM_TYPE_CONTEXTSTATISTICS_HPP

#include <qv/pmx/api.h>

#include <cstdint>

namespace com::kor::dal::nim::type {

/**
 * What has happened to the contexts of this process since enable(): to objects of ContainerContext and its
 * subclasses. ContainerContext::statistics() returns it.
 */
struct ContextStatistics
{
    /** Contexts constructed, also by copying. Each thread that uses the library has one. */
    std::uint64_t made = 0;
    /** Duplicates of contexts: for pool tasks and threads, and by copying and assignment. */
    std::uint64_t duplicated = 0;
    /** Duplicates that became the current context of a worker, which then ran a task. */
    std::uint64_t attached = 0;
    /**
     * Contexts that were made and have not been destroyed. Those that existed before enable() are not
     * included; if they are destroyed, the number is too low, but never below 0.
     */
    std::uint64_t alive = 0;

    /**
     * Has the library count contexts, permanently. To be called at the start of the program. Until then, the
     * counters cost two instructions for each of these operations. Any thread may call it at any time.
     */
    static DALNIM_API void enable() noexcept;
    /** Returns true after enable(). */
    static DALNIM_API bool isEnabled() noexcept;
};

}

#endif
