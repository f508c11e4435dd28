#ifndef QV_PMX_MUTEX_H
#define QV_PMX_MUTEX_H

/**
 * @file
 * Mutexes.
 */

#include <pthread.h>

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/** A mutex, held by value; must not be copied. Used only through the functions below. */
typedef struct DALNIM_CAPABILITY("mutex") si_mutex_t
{
    /** The POSIX mutex. */
    pthread_mutex_t mutex;
} si_mutex_t;

/**
 * Initialises a mutex.
 *
 * @param attributes  "R" for a recursive mutex; null or "r" for a non-recursive one, which detects relocking
 *                    and unlocking by a thread that does not hold it
 * @return 0, or EINVAL (22) for any other `attributes`
 */
DALNIM_API qv_err_t qv_si_mutex_init(si_mutex_t* mutex, const char* attributes) QV_NOEXCEPT;

/** Destroys a mutex. Fails with EBUSY (16) if it is locked or used by a condition wait. */
DALNIM_API qv_err_t qv_si_mutex_destroy(si_mutex_t* mutex) QV_NOEXCEPT;

/** Locks a mutex; blocks. Fails with EDEADLK (35) if the caller holds it and it is not recursive. */
DALNIM_API qv_err_t qv_si_mutex_lock(si_mutex_t* mutex) QV_NOEXCEPT DALNIM_TRY_ACQUIRE(0, *mutex);

/** Locks a mutex without blocking. Fails with EBUSY (16) if it is held. */
DALNIM_API qv_err_t qv_si_mutex_trylock(si_mutex_t* mutex) QV_NOEXCEPT DALNIM_TRY_ACQUIRE(0, *mutex);

/** Unlocks a mutex. Fails with EPERM (1) if the caller does not hold it. */
DALNIM_API qv_err_t qv_si_mutex_unlock(si_mutex_t* mutex) QV_NOEXCEPT DALNIM_RELEASE(*mutex);

QV_END_C

#endif
