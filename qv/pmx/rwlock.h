#ifndef QV_PMX_RWLOCK_H
#define QV_PMX_RWLOCK_H

/**
 * @file
 * Reader-writer locks.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * A reader-writer lock, held by value. Copy `qv_si_rwlock_empty_lock_extern` into the record before
 * `qv_si_rw_init`, and do not copy it after.
 *
 * Policy: a waiting writer holds back new readers. When a writer releases the lock, all waiting readers
 * acquire it together, before the next writer. Waiting writers acquire it in the order of their arrival. A
 * running writer may overtake a writer that is just being woken; but the lock is handed to the first waiting
 * writer at the first release, and again whenever 100 microseconds have passed. So no thread starves. The
 * lock counts its holders and does not know them: a thread that acquires it twice may wait for itself.
 *
 * Every function gives EINVAL for a lock that is at rest: not yet made, or destroyed.
 */
typedef struct si_rwlock_t
{
    /** The lock itself, owned; null at rest. */
    void* val;
    /** Tells a live lock from a record at rest. */
    int magic;
} si_rwlock_t;

/** The image of a lock at rest. */
DALNIM_API extern const si_rwlock_t qv_si_rwlock_empty_lock_extern;

/**
 * Makes a lock of a record at rest. EBUSY when the record is a live lock, ENOMEM without memory.
 * There are no attributes yet: anything but null is refused with EINVAL.
 */
DALNIM_API qv_err_t qv_si_rw_init(si_rwlock_t* lock, const char* attributes) QV_NOEXCEPT;

/** Ends a lock; its record is at rest again. EBUSY, and the lock stays, when it is held. */
DALNIM_API qv_err_t qv_si_rw_destroy(si_rwlock_t* lock) QV_NOEXCEPT;

/** Takes shared access; waits without limit. EAGAIN when no further reader can be counted. */
DALNIM_API qv_err_t qv_si_rw_rdlock(si_rwlock_t* lock) QV_NOEXCEPT;

/** Takes exclusive access; waits without limit. */
DALNIM_API qv_err_t qv_si_rw_wrlock(si_rwlock_t* lock) QV_NOEXCEPT;

/** Acquires shared access if that takes no waiting. EBUSY if a writer holds the lock or waits for it. */
DALNIM_API qv_err_t qv_si_rw_tryrdlock(si_rwlock_t* lock) QV_NOEXCEPT;

/** Acquires exclusive access if that takes no waiting. EBUSY if the lock is held. */
DALNIM_API qv_err_t qv_si_rw_trywrlock(si_rwlock_t* lock) QV_NOEXCEPT;

/** Ends the caller's access of either kind. EPERM when nobody holds the lock. */
DALNIM_API qv_err_t qv_si_rw_unlock(si_rwlock_t* lock) QV_NOEXCEPT;

/**
 * Turns the caller's shared access into exclusive access, ahead of waiting writers, and never waits.
 * EBUSY when there are other readers: the caller keeps its shared access. EPERM when no shared
 * access is held.
 */
DALNIM_API qv_err_t qv_si_rw_upgrade(si_rwlock_t* lock) QV_NOEXCEPT;

QV_END_C

#endif
