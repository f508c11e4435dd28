#ifndef QV_PMX_COND_H
#define QV_PMX_COND_H

/**
 * @file
 * Condition variables.
 */

#include <pthread.h>

#include <qv/pmx/api.h>
#include <qv/pmx/mutex.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * A condition variable, held by value; must not be copied. Its first member is a POSIX condition variable, on
 * which callers use `pthread_cond_signal`, `pthread_cond_broadcast`, `pthread_cond_timedwait` (with a
 * deadline on CLOCK_MONOTONIC) and `pthread_cond_destroy` directly.
 */
typedef struct si_cond_t
{
    /** The POSIX condition variable. Its clock is CLOCK_MONOTONIC. */
    pthread_cond_t cond;
} si_cond_t;

/**
 * Initialises a condition variable.
 *
 * @param attributes  null; no attributes are defined
 * @return 0, or EINVAL (22) if `attributes` is not null
 */
DALNIM_API qv_err_t qv_si_cond_init(si_cond_t* cond, const char* attributes) QV_NOEXCEPT;

/**
 * Atomically releases the mutex and waits; reacquires the mutex before it returns. May return without a
 * wake-up. A cancellation point.
 *
 * @return 0, or EPERM (1), without waiting, if the caller does not hold the mutex
 */
DALNIM_API qv_err_t qv_si_cond_wait(si_cond_t* cond, si_mutex_t* mutex);

QV_END_C

#endif
