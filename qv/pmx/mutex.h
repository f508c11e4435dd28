#ifndef QV_PMX_MUTEX_H
#define QV_PMX_MUTEX_H

/**
 * @file
 * Mutexes.
 */

#include <pthread.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/** A mutex, held by value and never copied. Its content is for these functions alone. */
typedef struct si_mutex_t
{
    /** The POSIX mutex. */
    pthread_mutex_t mutex;
} si_mutex_t;

/**
 * Makes a mutex.
 *
 * @param attributes  "R" for a recursive mutex; null or "r" for one that is not, and that reports what
 *                    else would be a deadlock or undefined. Anything else is refused with EINVAL.
 */
DALNIM_API qv_err_t qv_si_mutex_init(si_mutex_t* mutex, const char* attributes) QV_NOEXCEPT;

/** Ends a mutex. EBUSY, and the mutex stays, when it is locked or a condition wait is using it. */
DALNIM_API qv_err_t qv_si_mutex_destroy(si_mutex_t* mutex) QV_NOEXCEPT;

/** Locks; waits without limit. EDEADLK when the caller holds a mutex that is not recursive. */
DALNIM_API qv_err_t qv_si_mutex_lock(si_mutex_t* mutex) QV_NOEXCEPT;

/** Locks if that takes no waiting: 0 when it was locked, EBUSY when it is held. */
DALNIM_API qv_err_t qv_si_mutex_trylock(si_mutex_t* mutex) QV_NOEXCEPT;

/** Unlocks. EPERM when the caller does not hold the mutex. */
DALNIM_API qv_err_t qv_si_mutex_unlock(si_mutex_t* mutex) QV_NOEXCEPT;

QV_END_C

#endif
