#ifndef DALNIM_MT_READERWRITERLOCK_HPP
#define DALNIM_MT_READERWRITERLOCK_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>

#include <new>

namespace com::kor::dal::nim::mt {

/**
 * A lock with shared and exclusive access. A waiting writer blocks new readers, and waiting writers acquire
 * the lock in the order of their arrival. Each acquisition of either kind is ended by one release(), so a
 * MutexHolder works for both.
 *
 * Exceptions: a failure throws sys::system_error with the error number and the message of its cause.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("reader-writer lock") DALNIM_API ReaderWriterLock
{
public:
    static constexpr const char CLASS_NAME[] = "ReaderWriterLock";

    ReaderWriterLock();
    /** Ignores failures. */
    ~ReaderWriterLock();

    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;

    /** Blocks until shared access is held. */
    const ReaderWriterLock& acquireForRead() const DALNIM_ACQUIRE_SHARED() DALNIM_RETURN_CAPABILITY(this);
    /** Blocks until exclusive access is held. */
    const ReaderWriterLock& acquireForWrite() const DALNIM_ACQUIRE() DALNIM_RETURN_CAPABILITY(this);
    /**
     * Converts the caller's shared access to exclusive access. Does not wait for other readers.
     * @throws sys::system_error  16 (EBUSY) if there are other readers. The caller still has shared access,
     *                            and may release() it and call acquireForWrite()
     */
    const ReaderWriterLock& upgradeToWrite() const DALNIM_RELEASE_SHARED() DALNIM_ACQUIRE();
    /** Ends either kind of access. */
    void release() const DALNIM_RELEASE_GENERIC();
    /** Ends either kind of access. Returns false on failure. */
    bool release(const std::nothrow_t&) const noexcept DALNIM_RELEASE_GENERIC();

    /** @name Standard locks */
    /** @{ */
    /**
     * acquireForWrite() and release() under the names that std::lock_guard, std::unique_lock and
     * std::scoped_lock require, also for a const lock. A release that fails in the destructor of one of these
     * terminates the process.
     */
    void lock() const DALNIM_ACQUIRE()
    {
        acquireForWrite();
    }
    void unlock() const DALNIM_RELEASE()
    {
        release();
    }
    /** acquireForRead() and release() under the names that std::shared_lock requires. */
    void lock_shared() const DALNIM_ACQUIRE_SHARED()
    {
        acquireForRead();
    }
    void unlock_shared() const DALNIM_RELEASE_SHARED()
    {
        release();
    }
    /** Tries to acquire exclusive access without blocking. Returns false if the lock is held. */
    bool try_lock() const DALNIM_TRY_ACQUIRE(true);
    /**
     * Tries to acquire shared access without blocking. Returns false if a writer holds the lock or waits for
     * it.
     */
    bool try_lock_shared() const DALNIM_TRY_ACQUIRE_SHARED(true);
    /** @} */

private:
    /** The `RX_RWLock`, owned. */
    void* rep;
};

}

#endif
