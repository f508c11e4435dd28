#ifndef QV_PMX_RWLOCK_H
#define QV_PMX_RWLOCK_H

/**
 * @file
 * Reader-writer locks.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * A reader-writer lock, held by value. Copy `qv_si_rwlock_empty_lock_extern` to the record before
 * `qv_si_rw_init`; the record must not be copied afterwards.
 *
 * Policy: a waiting writer blocks new readers. When a writer releases the lock, all waiting readers
 * acquire it together, before the next writer. Waiting writers acquire it in the order of their arrival. A
 * running writer may overtake a writer that is just being woken; but the lock is handed to the first waiting
 * writer at the first release, and again whenever 100 microseconds have passed. So no thread starves. A
 * thread that asks for shared access may count as a reader for a moment, even if it must wait or fails. The
 * lock counts its holders but does not identify them: a thread that acquires it twice may deadlock.
 *
 * Every function but qv_si_rw_init() fails with EINVAL (22) if the lock is not initialised.
 */
typedef struct DALNIM_CAPABILITY("reader-writer lock") si_rwlock_t
{
    /** The implementation, owned; null if the lock is not initialised. */
    void* val;
    /** Distinguishes an initialised record. */
    int magic;
} si_rwlock_t;

/** The record of a lock that is not initialised. */
DALNIM_API extern const si_rwlock_t qv_si_rwlock_empty_lock_extern;

/**
 * Initialises a lock.
 *
 * @param attributes  null; no attributes are defined
 * @return 0, EBUSY (16) if the lock is already initialised, ENOMEM (12), or EINVAL (22) if `lock` is null or
 *         `attributes` is not
 */
DALNIM_API qv_err_t qv_si_rw_init(si_rwlock_t* lock, const char* attributes) QV_NOEXCEPT;

/** Destroys a lock; it may be initialised again. Fails with EBUSY (16) if it is held. */
DALNIM_API qv_err_t qv_si_rw_destroy(si_rwlock_t* lock) QV_NOEXCEPT;

/** Acquires shared access; blocks. Fails with EAGAIN (11) if the number of readers overflows. */
DALNIM_API qv_err_t qv_si_rw_rdlock(si_rwlock_t* lock) QV_NOEXCEPT DALNIM_TRY_ACQUIRE_SHARED(0, *lock);

/** Acquires exclusive access; blocks. */
DALNIM_API qv_err_t qv_si_rw_wrlock(si_rwlock_t* lock) QV_NOEXCEPT DALNIM_TRY_ACQUIRE(0, *lock);

/**
 * Acquires shared access without blocking. Fails with EBUSY (16) if a writer holds the lock or waits for it.
 */
DALNIM_API qv_err_t qv_si_rw_tryrdlock(si_rwlock_t* lock) QV_NOEXCEPT DALNIM_TRY_ACQUIRE_SHARED(0, *lock);

/** Acquires exclusive access without blocking. Fails with EBUSY (16) if the lock is held. */
DALNIM_API qv_err_t qv_si_rw_trywrlock(si_rwlock_t* lock) QV_NOEXCEPT DALNIM_TRY_ACQUIRE(0, *lock);

/** Releases shared or exclusive access. Fails with EPERM (1) if no thread holds the lock. */
DALNIM_API qv_err_t qv_si_rw_unlock(si_rwlock_t* lock) QV_NOEXCEPT DALNIM_RELEASE_GENERIC(*lock);

/**
 * Converts the caller's shared access to exclusive access, before any waiting writer. Never blocks.
 *
 * @return 0; EBUSY (16) if there are other readers, and the caller keeps its shared access; EPERM (1) if no
 *         shared access is held
 */
DALNIM_API qv_err_t qv_si_rw_upgrade(si_rwlock_t* lock) QV_NOEXCEPT;

QV_END_C

#endif
