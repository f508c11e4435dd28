#ifndef QV_PMX_SRC_CACHED_PID_HPP
#define QV_PMX_SRC_CACHED_PID_HPP

namespace qv {

/** Called after `fork()` in the child process: discards the cached process ID. */
extern "C" void forgetPid();

}

#endif
