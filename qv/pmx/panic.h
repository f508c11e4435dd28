#ifndef QV_PMX_PANIC_H
#define QV_PMX_PANIC_H

/**
 * @file
 * Abnormal termination of the process.
 */

#include <qv/pmx/api.h>

QV_BEGIN_C

/**
 * Writes one line with the source position to standard error and aborts the process. Acquires no lock and
 * allocates no memory, so it may be called from anywhere, including signal handlers.
 */
DALNIM_API void qv_si_panic_internal(const char* path, int line) QV_NOEXCEPT __attribute__((noreturn, cold));

QV_END_C

#endif
