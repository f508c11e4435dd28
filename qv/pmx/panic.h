#ifndef QV_PMX_PANIC_H
#define QV_PMX_PANIC_H

/**
 * @file
 * The end of a process that cannot go on.
 */

#include <qv/pmx/api.h>

QV_BEGIN_C

/**
 * Writes one line that names the place to the standard error and aborts the process. Takes no lock
 * and no memory, so it may be called from anywhere, a signal handler included.
 */
DALNIM_API void qv_si_panic_internal(const char* path, int line) QV_NOEXCEPT __attribute__((noreturn, cold));

QV_END_C

#endif
