#include <qv/pmx/rwlock.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <new>

#include <pthread.h>

#include <qv/pmx/src/CancellationOff.hpp>
#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/rwlock.hpp>

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

/** Microseconds since an arbitrary start. */
si_int64_t now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<si_int64_t>(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
}

/** The wait node of a writer, on the stack of its thread. Guarded by the mutex of the lock. */
struct WaitingWriter
{
    WaitingWriter() = default;
    WaitingWriter(const WaitingWriter&) = delete;
    WaitingWriter& operator=(const WaitingWriter&) = delete;
    ~WaitingWriter()
    {
        pthread_cond_destroy(&turn);
    }

    WaitingWriter* next = nullptr;
    /** The lock is this writer's. */
    bool isAdmitted = false;
    pthread_cond_t turn = PTHREAD_COND_INITIALIZER;
};

/**
 * The lock itself. As long as no thread waits, one exchange of `_state` acquires or releases access. QUEUED
 * is set while threads wait; access is then acquired and released under `_mutex`. The last thread that
 * releases it admits the next waiter: a thread that is admitted owns the lock already, and no other thread
 * can overtake it.
 *
 * To admit a sleeping writer each time would make every access last as long as it takes to wake a thread. So
 * writers are admitted only HAND_OVER_INTERVAL after the last time. In between the lock is left free, with
 * QUEUED as its state: the first waiting writer is woken to acquire it, and a running writer may be faster.
 * It gets the lock at the latest by the first release after the interval.
 *
 * Memory order. Each acquisition reads `_state` by an acquiring exchange, or is handed over under `_mutex`. A
 * release without the mutex is a releasing exchange, and every change of `_state` without the mutex is an
 * exchange too, so a release sequence ends only at a store of a thread that holds the mutex. That thread has
 * acquired what was released before: the waiter that set QUEUED did, by an acquiring exchange under the same
 * mutex, and later releases hold the mutex themselves. The relaxed loads only supply the value to compare.
 */
class ReaderWriterLock
{
public:
    ReaderWriterLock() = default;
    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;
    ~ReaderWriterLock()
    {
        pthread_cond_destroy(&_readerTurn);
        pthread_mutex_destroy(&_mutex);
    }

    bool isHeld() const
    {
        return _state.load(std::memory_order_acquire) != 0;
    }

    /** Whether threads wait for the lock. */
    bool isAwaited()
    {
        const Guard guard(_mutex);
        return (_state.load(std::memory_order_acquire) & QUEUED) != 0;
    }

    qv_err_t lockShared()
    {
        const qv_err_t status = tryLockShared();
        return status == EBUSY ? waitShared() : status;
    }

    qv_err_t lockExclusive()
    {
        return tryLockExclusive() == 0 ? 0 : waitExclusive();
    }

    /** EBUSY if a writer holds the lock or waits for it. */
    qv_err_t tryLockShared()
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
        return EBUSY;
    }

    /** EBUSY if the lock is held. */
    qv_err_t tryLockExclusive()
    {
        si_uint32_t free = 0;
        qv::perturb();
        if (_state.compare_exchange_strong(free, WRITER, std::memory_order_acquire,
                                           std::memory_order_relaxed)) {
            return 0;
        }
        return EBUSY;
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
        return handOver();
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
        // A waiting thread is counted in, and may own the lock already.
        const qv::CancellationOff cancellationOff;
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

        // All waiting readers are admitted together; a change of the number signals it.
        ++_waitingReaders;
        const si_uint32_t admission = _readerAdmission;
        while (admission == _readerAdmission) {
            pthread_cond_wait(&_readerTurn, &_mutex);
        }
        return 0;
    }

    qv_err_t waitExclusive()
    {
        // A waiting thread is counted in, and may own the lock already.
        const qv::CancellationOff cancellationOff;
        const Guard guard(_mutex);

        si_uint32_t state = _state.load(std::memory_order_relaxed);
        for (;;) {
            if ((state & (WRITER | READERS)) == 0) {
                qv::perturb();
                if (_state.compare_exchange_weak(state, state | WRITER, std::memory_order_acquire,
                                                 std::memory_order_relaxed)) {
                    return 0;
                }
            } else if (_state.compare_exchange_weak(state, state | QUEUED, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                break;
            }
        }

        WaitingWriter self;
        *_lastWriter = &self;
        _lastWriter = &self.next;
        for (;;) {
            pthread_cond_wait(&self.turn, &_mutex);
            if (!self.isAdmitted && _firstWriter == &self
                && _state.load(std::memory_order_acquire) == QUEUED) {
                admit(self);
            }
            if (self.isAdmitted) {
                return 0;
            }
        }
    }

    /** Unlocks while threads wait. EPERM if no thread holds the lock. */
    qv_err_t handOver()
    {
        const Guard guard(_mutex);
        // Acquires what readers that left without the mutex did, for the writer that comes next.
        const si_uint32_t state = _state.load(std::memory_order_acquire);
        if ((state & (WRITER | READERS)) == 0) {
            return EPERM;
        }
        const bool wasWriter = (state & WRITER) != 0;
        const si_uint32_t readersLeft = wasWriter ? 0 : (state & READERS) - 1;

        if (readersLeft != 0) {
            _state.store(readersLeft | QUEUED, std::memory_order_release);
        } else if (wasWriter && _waitingReaders != 0) {
            admitReaders();
        } else {
            passToWriter();
        }
        return 0;
    }

    void admitReaders()
    {
        const si_uint32_t admitted = _waitingReaders;
        _waitingReaders = 0;
        ++_readerAdmission;
        _state.store(admitted | queuedFlag(), std::memory_order_release);
        pthread_cond_broadcast(&_readerTurn);
    }

    /** Admits the first waiting writer, or wakes it to try. The lock is free. */
    void passToWriter()
    {
        WaitingWriter& first = *_firstWriter;
        const si_int64_t time = now();
        if (time >= _nextHandOver) {
            _nextHandOver = time + HAND_OVER_INTERVAL;
            admit(first);
        } else {
            _state.store(QUEUED, std::memory_order_release);
        }
        pthread_cond_signal(&first.turn);
    }

    /** Makes the first waiting writer the owner of the lock, which is free. */
    void admit(WaitingWriter& first)
    {
        _firstWriter = first.next;
        if (_firstWriter == nullptr) {
            _lastWriter = &_firstWriter;
        }
        first.isAdmitted = true;
        _state.store(WRITER | queuedFlag(), std::memory_order_release);
    }

    si_uint32_t queuedFlag() const
    {
        return _waitingReaders != 0 || _firstWriter != nullptr ? QUEUED : 0;
    }

    /** In microseconds. Longer than it takes to wake a thread, shorter than any wait that is noticed. */
    static constexpr si_int64_t HAND_OVER_INTERVAL = 100;

    std::atomic<si_uint32_t> _state{0};
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
    // The members below are guarded by _mutex.
    pthread_cond_t _readerTurn = PTHREAD_COND_INITIALIZER;
    si_uint32_t _waitingReaders = 0;
    si_uint32_t _readerAdmission = 0;
    /** Waiting writers, in the order of their arrival, and where the next one is linked. */
    WaitingWriter* _firstWriter = nullptr;
    WaitingWriter** _lastWriter = &_firstWriter;
    /** When a writer is admitted again, by now(). */
    si_int64_t _nextHandOver = 0;
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

qv_err_t qv_si_rw_tryrdlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    return live != nullptr ? live->tryLockShared() : EINVAL;
}

qv_err_t qv_si_rw_trywrlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const live = liveLock(lock);
    return live != nullptr ? live->tryLockExclusive() : EINVAL;
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

void qv::abandon(si_rwlock_t& lock) noexcept
{
    ReaderWriterLock* const live = liveLock(&lock);
    lock = qv_si_rwlock_empty_lock_extern;
    if (live != nullptr && !live->isAwaited()) {
        delete live;
    }
}
