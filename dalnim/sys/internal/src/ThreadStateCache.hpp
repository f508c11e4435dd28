#ifndef DALNIM_SYS_INTERNAL_SRC_THREADSTATECACHE_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADSTATECACHE_HPP

#include <dalnim/sys/internal/ThreadState.hpp>

namespace com::kor::dal::nim::sys::internal {

/**
 * The state of the calling thread, or null: the value of the thread-specific key, cached, since each track
 * reads it. It is set after the key, and cleared before the state is destroyed.
 *
 * Not `thread_local`: each use in another source would check whether it must be initialised.
 */
extern __attribute__((visibility("hidden"), tls_model("initial-exec"))) __thread ThreadState* cached_state;

}

#endif
