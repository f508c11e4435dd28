#ifndef QV_RTLAPI_RX_RWLOCK_HPP
#define QV_RTLAPI_RX_RWLOCK_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/rwlock.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Exception.hpp>

/**
 * Shared or exclusive access. See si_rwlock_t for who goes first. Failures raise RX_Exception with
 * the system's number.
 *
 * Thread safety: every operation may be called from any thread.
 */
class DALNIM_API RX_RWLock
{
public:
    RX_RWLock() : _lock(qv_si_rwlock_empty_lock_extern)
    {
        RX_Check(qv_si_rw_init(&_lock, nullptr));
    }
    RX_RWLock(const RX_RWLock&) = delete;
    RX_RWLock& operator=(const RX_RWLock&) = delete;
    /** Raises RX_Exception with EBUSY when the lock is held. The object is destroyed all the same. */
    virtual ~RX_RWLock() noexcept(false);

    /** Takes shared access; waits without limit. */
    void rdlock() const
    {
        RX_Check(qv_si_rw_rdlock(&_lock));
    }
    /** Takes exclusive access; waits without limit. */
    void wrlock() const
    {
        RX_Check(qv_si_rw_wrlock(&_lock));
    }
    /** Acquires shared access if that takes no waiting: 1 on success, 0 if a writer holds the lock or waits.
     */
    qv_bool_t tryRdlock() const;
    /** Acquires exclusive access if that takes no waiting: 1 on success, 0 if the lock is held. */
    qv_bool_t tryWrlock() const;
    /** Ends access of either kind. */
    void unlock() const
    {
        RX_Check(qv_si_rw_unlock(&_lock));
    }
    /**
     * Turns the caller's shared access into exclusive access, without a wait. Where there are other
     * readers, raises RX_ExWarning with EBUSY (16) and leaves the shared access in place; any other
     * failure raises RX_ExFatal.
     */
    void upgrade() const;

private:
    mutable si_rwlock_t _lock;
};

#endif
