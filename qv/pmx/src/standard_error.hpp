#ifndef QV_PMX_SRC_STANDARD_ERROR_HPP
#define QV_PMX_SRC_STANDARD_ERROR_HPP

namespace qv {

/**
 * Returns the descriptor of standard error. Returns -1, with which each call fails, if standard error was
 * closed when the library was loaded: a file of the program may have its number, and must not receive a
 * message of the library. May be called in signal handlers.
 */
int standardError() noexcept;

/** Checks again whether standard error is open. */
void recheckStandardError() noexcept;

}

#endif
