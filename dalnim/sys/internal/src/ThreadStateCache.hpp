#ifndef DALNIM_SYS_INTERNAL_SRC_THREADSTATECACHE_HPP
#define DALNIM_SYS_INTERNAL_SRC_THREADSTATECACHE_HPP

#include <dalnim/sys/internal/ThreadState.hpp>

namespace com::kor::dal::nim::sys::internal {

/**
 * What the thread-specific key holds for the calling thread, null for nothing: read with every track,
 * and reached in one instruction. It is set behind the key and cleared ahead of the state's end.
 *
 * Not `thread_local`, whose every use from another source would ask whether it is to be initialised.
 */
extern __attribute__((visibility("hidden"), tls_model("initial-exec"))) __thread ThreadState* cached_state;

}

#endif
