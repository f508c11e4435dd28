#ifndef DALNIM_MT_READERWRITERLOCK_HPP
#define DALNIM_MT_READERWRITERLOCK_HPP

#include <qv/pmx/api.h>

#include <new>

namespace com::kor::dal::nim::mt {

/**
 * Shared and exclusive access, for any number of threads. A waiting writer holds back new readers, and
 * waiting writers acquire the lock in the order of their arrival. Every acquisition is ended by one
 * release(), so a MutexHolder serves for both kinds. Failures are sys::system_error with the number and text
 * of the cause.
 */
class DALNIM_API ReaderWriterLock
{
public:
    static constexpr const char CLASS_NAME[] = "ReaderWriterLock";

    ReaderWriterLock();
    /** Keeps every failure to itself. */
    ~ReaderWriterLock();

    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;

    /** Blocks until shared access is held. */
    const ReaderWriterLock& acquireForRead() const;
    /** Blocks until exclusive access is held. */
    const ReaderWriterLock& acquireForWrite() const;
    /**
     * Turns the caller's shared access into exclusive access. Throws sys::system_error 16, at once,
     * when there are other readers: the shared access stays, so release() it and start again with
     * acquireForWrite().
     */
    const ReaderWriterLock& upgradeToWrite() const;
    /** Ends either kind of access. */
    void release() const;
    /** Ends either kind of access; false on failure. */
    bool release(const std::nothrow_t&) const noexcept;

    /** @name Standard locks */
    /** @{ */
    /**
     * For std::lock_guard, std::unique_lock and std::scoped_lock, also of a const lock: acquireForWrite() and
     * release() under the names of the standard. A release that fails in their destructor ends the process.
     */
    void lock() const
    {
        acquireForWrite();
    }
    void unlock() const
    {
        release();
    }
    /** For std::shared_lock: acquireForRead() and release(). */
    void lock_shared() const
    {
        acquireForRead();
    }
    void unlock_shared() const
    {
        release();
    }
    /** Acquires exclusive access if that takes no waiting. Returns false if the lock is held. */
    bool try_lock() const;
    /** Acquires shared access if that takes no waiting. Returns false if a writer holds the lock or waits. */
    bool try_lock_shared() const;
    /** @} */

private:
    /** An `RX_RWLock`, owned. */
    void* rep;
};

}

#endif
