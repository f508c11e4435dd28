#ifndef DALNIM_SYS_INTERNAL_SRC_THREADCACHESTATE_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADCACHESTATE_HPP

#include <dalnim/sys/internal/src/ThreadExitHook.hpp>

namespace com::kor::dal::nim::sys::internal {

/**
 * Whether a thread may use its cache of something, in plain data: a cache is `thread_local`, and must remain
 * accessible until the very end of its thread, after destructors have run. Zero-initialised, it is inactive.
 */
struct ThreadCacheState
{
    /** Whether the exit hook that clears the cache is armed and has not run. */
    bool isActive;
    /** Whether the exit hook has run. What is used afterwards is not cached: nothing would free it. */
    bool hasExited;

    /** Arms the hook that clears the cache. Returns false if it has run, or if the system refuses it. */
    bool activate(ThreadExitHook& hook) noexcept
    {
        isActive = !hasExited && hook.arm();
        return isActive;
    }
    /** Must be called by the hook. */
    void exit() noexcept
    {
        isActive = false;
        hasExited = true;
    }
};

}

#endif
