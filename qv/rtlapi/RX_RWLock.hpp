#ifndef QV_RTLAPI_RX_RWLOCK_HPP
#define QV_RTLAPI_RX_RWLOCK_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/rwlock.h>
#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Exception.hpp>

/**
 * A reader-writer lock: shared or exclusive access. si_rwlock_t documents the order in which waiting threads
 * acquire it. If an operation fails, it throws RX_Exception with the error number.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("reader-writer lock") DALNIM_API RX_RWLock
{
public:
    /** Creates an unlocked lock. */
    RX_RWLock() : _lock(qv_si_rwlock_empty_lock_extern)
    {
        RX_Check(qv_si_rw_init(&_lock, nullptr));
    }
    RX_RWLock(const RX_RWLock&) = delete;
    RX_RWLock& operator=(const RX_RWLock&) = delete;
    /**
     * Destroys the lock, even if it is held.
     *
     * @throws RX_Exception  with 16 (`EBUSY`) if the lock is held
     */
    virtual ~RX_RWLock() noexcept(false);

    /** Acquires shared access. Blocks without a time limit. */
    void rdlock() const DALNIM_ACQUIRE_SHARED()
    {
        RX_Check(qv_si_rw_rdlock(&_lock));
    }
    /** Acquires exclusive access. Blocks without a time limit. */
    void wrlock() const DALNIM_ACQUIRE()
    {
        RX_Check(qv_si_rw_wrlock(&_lock));
    }
    /** Acquires shared access without blocking. Returns 1, or 0 if a writer holds the lock or waits for it.
     */
    qv_bool_t tryRdlock() const DALNIM_TRY_ACQUIRE_SHARED(1);
    /** Acquires exclusive access without blocking. Returns 1, or 0 if the lock is held. */
    qv_bool_t tryWrlock() const DALNIM_TRY_ACQUIRE(1);
    /**
     * Releases access of either kind.
     *
     * @throws RX_Exception  with 1 (`EPERM`) if the lock is not held
     */
    void unlock() const DALNIM_RELEASE_GENERIC()
    {
        RX_Check(qv_si_rw_unlock(&_lock));
    }
    /**
     * Converts the caller's shared access into exclusive access. Does not block.
     *
     * @throws RX_ExWarning  with 16 (`EBUSY`) if there are other readers; the caller keeps its shared access
     * @throws RX_ExFatal    if the upgrade fails for any other reason, with the error number
     */
    void upgrade() const DALNIM_RELEASE_SHARED() DALNIM_ACQUIRE();

private:
    mutable si_rwlock_t _lock;
};

#endif
