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
 * A condition variable, held by value and never copied. It starts with a POSIX one, on which
 * `pthread_cond_signal`, `pthread_cond_broadcast` and `pthread_cond_destroy` are called directly.
 * The deadline of a `pthread_cond_timedwait` on it is on CLOCK_MONOTONIC.
 */
typedef struct si_cond_t
{
    /** The POSIX condition, on CLOCK_MONOTONIC. */
    pthread_cond_t cond;
} si_cond_t;

/** Makes a condition. There are no attributes yet: anything but null is refused with EINVAL. */
DALNIM_API qv_err_t qv_si_cond_init(si_cond_t* cond, const char* attributes) QV_NOEXCEPT;

/**
 * Releases the mutex and waits, in one step; holds the mutex again on return, which may come without
 * a wake-up. EPERM, without a wait, when the caller does not hold the mutex. A cancellation point.
 */
DALNIM_API qv_err_t qv_si_cond_wait(si_cond_t* cond, si_mutex_t* mutex);

QV_END_C

#endif
