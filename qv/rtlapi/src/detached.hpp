#ifndef QV_RTLAPI_SRC_DETACHED_HPP
#define QV_RTLAPI_SRC_DETACHED_HPP

#include <qv/rtlapi/Reference.hpp>

class RX_Closure;

namespace qv {

/** Starts a detached system thread. Returns 0 or an error number. */
int startDetached(void* (*function)(void*), void* argument) noexcept;

/**
 * Applies a closure on a thread that has no other handler for its exceptions. If one leaves the closure, a
 * line that names it is written to standard error, and `std::terminate` is called.
 */
void applyDetached(RX_Closure& closure);

}

#endif
