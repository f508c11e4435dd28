#ifndef QV_PMX_SRC_THREAD_SELF_HPP
#define QV_PMX_SRC_THREAD_SELF_HPP

namespace qv {

/** Invalidates the cached ID of the calling thread; called in the child of a fork, which has another ID. */
extern "C" void forgetThreadSelf();

}

#endif
