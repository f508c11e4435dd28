#include <qv/pmx/rwlock.h>

#include <atomic>
#include <cerrno>
#include <new>

#include <pthread.h>

#include <qv/pmx/src/perturb.hpp>

namespace {

// The word that holds the whole state as long as nobody waits.
constexpr si_uint32_t WRITER = 0x80000000U;
constexpr si_uint32_t QUEUED = 0x40000000U;
constexpr si_uint32_t READERS = 0x3FFFFFFFU;

constexpr int MAGIC_AT_REST = 0;
constexpr int MAGIC_LIVE = 0x52574C4B;

class Guard
{
public:
    explicit Guard(pthread_mutex_t& mutex) : _mutex(mutex)
    {
        qv::perturb();
        pthread_mutex_lock(&_mutex);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard()
    {
        pthread_mutex_unlock(&_mutex);
    }

private:
    pthread_mutex_t& _mutex;
};

/** A thread that waits for the lock cannot be cancelled: it is counted in, and may own the lock. */
class CancellationOff
{
public:
    CancellationOff()
    {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_previous);
    }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;
    ~CancellationOff()
    {
        pthread_setcancelstate(_previous, nullptr);
    }

private:
    int _previous;
};

/**
 * The lock itself. As long as nobody waits, one exchange of `_state` takes or gives access. QUEUED
 * stands while somebody waits; from then on access is taken and given under `_mutex`, and whoever
 * leaves last hands the lock over: those who are woken own it already, and nobody gets in between.
 * Without a WRITER, QUEUED means that there is a waiting writer.
 */
class ReaderWriterLock
{
public:
    ReaderWriterLock() = default;
    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;
    ~ReaderWriterLock()
    {
        pthread_cond_destroy(&_writerTurn);
        pthread_cond_destroy(&_readerTurn);
        pthread_mutex_destroy(&_mutex);
    }

    bool isHeld() const
    {
        return _state.load(std::memory_order_acquire) != 0;
    }

    qv_err_t lockShared()
    {
        si_uint32_t state = _state.load(std::memory_order_relaxed);
        while ((state & (WRITER | QUEUED)) == 0) {
            if (state == READERS) {
                return EAGAIN;
            }
            qv::perturb();
            if (_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return 0;
            }
        }
        return waitShared();
    }

    qv_err_t lockExclusive()
    {
        si_uint32_t free = 0;
        qv::perturb();
        if (_state.compare_exchange_strong(free, WRITER, std::memory_order_acquire,
                                           std::memory_order_relaxed)) {
            return 0;
        }
        return waitExclusive();
    }

    qv_err_t unlock()
    {
        si_uint32_t state = _state.load(std::memory_order_relaxed);
        while ((state & QUEUED) == 0) {
            if (state == 0) {
                return EPERM;
            }
            const si_uint32_t left = state == WRITER ? 0 : state - 1;
            qv::perturb();
            if (_state.compare_exchange_weak(state, left, std::memory_order_release,
                                             std::memory_order_relaxed)) {
                return 0;
            }
        }
        // The caller's own access keeps the waiting ones waiting, and QUEUED set.
        handOver();
        return 0;
    }

    qv_err_t upgrade()
    {
        si_uint32_t state = _state.load(std::memory_order_relaxed);
        while ((state & WRITER) == 0 && (state & READERS) == 1) {
            // QUEUED stays as it is: the waiting ones wait on. This needs no mutex, for who could hand
            // the lock over meanwhile is the caller alone.
            qv::perturb();
            if (_state.compare_exchange_weak(state, (state & QUEUED) | WRITER, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return 0;
            }
        }
        return (state & WRITER) != 0 || (state & READERS) == 0 ? EPERM : EBUSY;
    }

private:
    qv_err_t waitShared()
    {
        const CancellationOff cancellationOff;
        const Guard guard(_mutex);

        si_uint32_t state = _state.load(std::memory_order_relaxed);
        for (;;) {
            if ((state & (WRITER | QUEUED)) == 0) {
                if (state == READERS) {
                    return EAGAIN;
                }
                qv::perturb();
                if (_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                                 std::memory_order_relaxed)) {
                    return 0;
                }
            } else if (_state.compare_exchange_weak(state, state | QUEUED, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                break;
            }
        }

        // All readers that wait are let in at once: a change of the number is the sign.
        ++_waitingReaders;
        const si_uint32_t admission = _readerAdmission;
        while (admission == _readerAdmission) {
            pthread_cond_wait(&_readerTurn, &_mutex);
        }
        return 0;
    }

    qv_err_t waitExclusive()
    {
        const CancellationOff cancellationOff;
        const Guard guard(_mutex);

        si_uint32_t state = _state.load(std::memory_order_relaxed);
        for (;;) {
            if (state == 0) {
                qv::perturb();
                if (_state.compare_exchange_weak(state, WRITER, std::memory_order_acquire,
                                                 std::memory_order_relaxed)) {
                    return 0;
                }
            } else if (_state.compare_exchange_weak(state, state | QUEUED, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                break;
            }
        }

        ++_waitingWriters;
        while (_writerAdmissions == 0) {
            pthread_cond_wait(&_writerTurn, &_mutex);
        }
        --_writerAdmissions;
        return 0;
    }

    /** Unlocks while somebody waits. */
    void handOver()
    {
        const Guard guard(_mutex);
        // Acquires what readers that left without the mutex did, for the writer that comes next.
        const si_uint32_t state = _state.load(std::memory_order_acquire);
        const bool wasWriter = (state & WRITER) != 0;
        const si_uint32_t readersLeft = wasWriter ? 0 : (state & READERS) - 1;

        if (readersLeft != 0) {
            _state.store(readersLeft | QUEUED, std::memory_order_release);
        } else if (wasWriter && _waitingReaders != 0) {
            admitReaders();
        } else {
            admitWriter();
        }
    }

    void admitReaders()
    {
        const si_uint32_t admitted = _waitingReaders;
        _waitingReaders = 0;
        ++_readerAdmission;
        _state.store(admitted | queuedFlag(), std::memory_order_release);
        pthread_cond_broadcast(&_readerTurn);
    }

    void admitWriter()
    {
        --_waitingWriters;
        ++_writerAdmissions;
        _state.store(WRITER | queuedFlag(), std::memory_order_release);
        pthread_cond_signal(&_writerTurn);
    }

    si_uint32_t queuedFlag() const
    {
        return _waitingReaders != 0 || _waitingWriters != 0 ? QUEUED : 0;
    }

    std::atomic<si_uint32_t> _state{0};
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
    // The rest is guarded by _mutex.
    pthread_cond_t _readerTurn = PTHREAD_COND_INITIALIZER;
    pthread_cond_t _writerTurn = PTHREAD_COND_INITIALIZER;
    si_uint32_t _waitingReaders = 0;
    si_uint32_t _waitingWriters = 0;
    si_uint32_t _readerAdmission = 0;
    si_uint32_t _writerAdmissions = 0;
};

/** The live lock of a record, null when the record is at rest. */
ReaderWriterLock* liveLock(const si_rwlock_t* lock)
{
    return lock != nullptr && lock->magic == MAGIC_LIVE ? static_cast<ReaderWriterLock*>(lock->val) : nullptr;
}

}

const si_rwlock_t qv_si_rwlock_empty_lock_extern = {nullptr, MAGIC_AT_REST};

qv_err_t qv_si_rw_init(si_rwlock_t* lock, const char* attributes) noexcept
{
    if (lock == nullptr || attributes != nullptr) {
        return EINVAL;
    }
    if (liveLock(lock) != nullptr) {
        return EBUSY;
    }
    lock->val = new (std::nothrow) ReaderWriterLock;
    if (lock->val == nullptr) {
        return ENOMEM;
    }
    lock->magic = MAGIC_LIVE;
    return 0;
}

qv_err_t qv_si_rw_destroy(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    if (live == nullptr) {
        return EINVAL;
    }
    if (live->isHeld()) {
        return EBUSY;
    }
    *lock = qv_si_rwlock_empty_lock_extern;
    delete live;
    return 0;
}

qv_err_t qv_si_rw_rdlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    return live != nullptr ? live->lockShared() : EINVAL;
}

qv_err_t qv_si_rw_wrlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    return live != nullptr ? live->lockExclusive() : EINVAL;
}

qv_err_t qv_si_rw_unlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    return live != nullptr ? live->unlock() : EINVAL;
}

qv_err_t qv_si_rw_upgrade(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    return live != nullptr ? live->upgrade() : EINVAL;
}
