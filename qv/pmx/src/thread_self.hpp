#ifndef QV_PMX_SRC_THREAD_SELF_HPP
#define QV_PMX_SRC_THREAD_SELF_HPP

namespace qv {

/** Makes the calling thread look its number up again: in the child of a fork it has another. */
extern "C" void forgetThreadSelf();

}

#endif
