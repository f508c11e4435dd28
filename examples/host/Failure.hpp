#ifndef NIMHOST_FAILURE_HPP
#define NIMHOST_FAILURE_HPP

#include <string>

namespace nimhost {

/**
 * Returns one line for the exception that is being handled, whatever its type: its message, or the name of
 * its type if it has none. Rethrows the unwinding of a thread that is cancelled or exits, which no handler
 * may end. To be called from a handler only.
 */
std::string currentFailure();

}

#endif
