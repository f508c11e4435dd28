#ifndef DALNIM_MT_READERWRITERLOCK_HPP
#define DALNIM_MT_READERWRITERLOCK_HPP

#include <qv/pmx/api.h>

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
class DALNIM_API ReaderWriterLock
{
public:
    static constexpr const char CLASS_NAME[] = "ReaderWriterLock";

    ReaderWriterLock();
    /** Ignores failures. */
    ~ReaderWriterLock();

    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;

    /** Blocks until shared access is held. */
    const ReaderWriterLock& acquireForRead() const;
    /** Blocks until exclusive access is held. */
    const ReaderWriterLock& acquireForWrite() const;
    /**
     * Converts the caller's shared access to exclusive access. Does not wait for other readers.
     * @throws sys::system_error  16 (EBUSY) if there are other readers. The caller still has shared access,
     *                            and may release() it and call acquireForWrite()
     */
    const ReaderWriterLock& upgradeToWrite() const;
    /** Ends either kind of access. */
    void release() const;
    /** Ends either kind of access. Returns false on failure. */
    bool release(const std::nothrow_t&) const noexcept;

    /** @name Standard locks */
    /** @{ */
    /**
     * acquireForWrite() and release() under the names that std::lock_guard, std::unique_lock and
     * std::scoped_lock require, also for a const lock. A release that fails in the destructor of one of these
     * terminates the process.
     */
    void lock() const
    {
        acquireForWrite();
    }
    void unlock() const
    {
        release();
    }
    /** acquireForRead() and release() under the names that std::shared_lock requires. */
    void lock_shared() const
    {
        acquireForRead();
    }
    void unlock_shared() const
    {
        release();
    }
    /** Tries to acquire exclusive access without blocking. Returns false if the lock is held. */
    bool try_lock() const;
    /**
     * Tries to acquire shared access without blocking. Returns false if a writer holds the lock or waits for
     * it.
     */
    bool try_lock_shared() const;
    /** @} */

private:
    /** The `RX_RWLock`, owned. */
    void* rep;
};

}

#endif
