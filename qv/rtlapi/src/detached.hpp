#ifndef QV_RTLAPI_SRC_DETACHED_HPP
#define QV_RTLAPI_SRC_DETACHED_HPP

#include <qv/rtlapi/Reference.hpp>

class RX_Closure;

namespace qv {

/** Starts a detached system thread. Gives 0 or an error number. */
int startDetached(void* (*function)(void*), void* argument) noexcept;

/**
 * Applies a closure on a thread where nobody waits for an exception. One that leaves it ends the
 * process through `std::terminate`, after a line on the standard error that names it.
 */
void applyDetached(RX_Closure& closure);

}

#endif
