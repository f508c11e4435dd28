#include <qv/pmx/rwlock.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <new>

#include <pthread.h>

#include <qv/pmx/src/CancellationOff.hpp>
#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/probes.hpp>
#include <qv/pmx/src/rwlock.hpp>

namespace {

// The bits of ReaderWriterLock::_state, which is the whole state while no thread waits.
constexpr si_uint32_t WRITER = 0x80000000U;
constexpr si_uint32_t HAS_WAITERS = 0x40000000U;
constexpr si_uint32_t READERS = 0x3FFFFFFFU;
/** Number of readers up to which one more is added without a check for overflow. */
constexpr si_uint32_t UNCHECKED_READERS = READERS / 2;

/** Alignment of `_state`: the record that refers to it is read by every operation, and seldom changes. */
constexpr unsigned int CACHE_LINE = 64;

constexpr int MAGIC_UNINITIALIZED = 0;
constexpr int MAGIC_INITIALIZED = 0x52574C4B;

/** A mutex of the system, without a check for errors. */
class DALNIM_CAPABILITY("mutex") Mutex
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    ~Mutex()
    {
        pthread_mutex_destroy(&_mutex);
    }

    void lock() DALNIM_ACQUIRE()
    {
        qv::perturb();
        pthread_mutex_lock(&_mutex);
    }
    void unlock() DALNIM_RELEASE()
    {
        pthread_mutex_unlock(&_mutex);
    }
    /** Releases the mutex, waits for a wake-up, and acquires the mutex again. */
    void wait(pthread_cond_t& condition) DALNIM_REQUIRES(this)
    {
        pthread_cond_wait(&condition, &_mutex);
    }

private:
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

class DALNIM_SCOPED_CAPABILITY Guard
{
public:
    explicit Guard(Mutex& mutex) DALNIM_ACQUIRE(mutex) : _mutex(mutex)
    {
        _mutex.lock();
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() DALNIM_RELEASE()
    {
        _mutex.unlock();
    }

private:
    Mutex& _mutex;
};

/** Returns the monotonic time, in microseconds. */
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
        pthread_cond_destroy(&wakeUp);
    }

    WaitingWriter* next = nullptr;
    /** Whether this writer owns the lock. */
    bool isAdmitted = false;
    pthread_cond_t wakeUp = PTHREAD_COND_INITIALIZER;
};

/**
 * The implementation. While no thread waits, one atomic operation on `_state` acquires or releases access.
 * HAS_WAITERS is set while threads wait; access is then acquired and released under `_mutex`. The last thread
 * that releases it admits the next waiter: a thread that is admitted owns the lock already, and no other
 * thread can overtake it.
 *
 * A reader adds itself to `_state` by an addition, which unlike a compare-and-exchange never has to be
 * repeated when other readers come and go. If a writer has acquired the lock, or a thread has begun to wait,
 * since the reader looked, the reader is one of too many in READERS until it has removed itself:
 *  - While WRITER is set, all of READERS are such, and a writer that releases the lock leaves them. A reader
 *    that finds WRITER and HAS_WAITERS cleared before it has removed itself holds shared access.
 *  - Otherwise such a reader cannot be distinguished from those that hold shared access, and delays a waiting
 *    writer like one of them: if it is the last, it hands the lock over.
 *
 * If a sleeping writer were admitted each time, every access would last as long as it takes to wake a thread.
 * So writers are admitted only if HAND_OVER_INTERVAL has passed since the last time. In between the lock is
 * left free, with HAS_WAITERS as its state: the first waiting writer is woken to acquire it, and a running
 * writer may be faster. The waiting writer is admitted by the first release after the interval at the latest.
 *
 * Memory order. Each acquisition reads `_state` with acquire order, or is handed over under `_mutex`. Each
 * release writes it with release order. Every change of `_state` is an atomic read-modify-write operation, so
 * that no release sequence ends. The relaxed loads only supply the value to compare.
 */
class alignas(CACHE_LINE) ReaderWriterLock
{
public:
    ReaderWriterLock() = default;
    ReaderWriterLock(const ReaderWriterLock&) = delete;
    ReaderWriterLock& operator=(const ReaderWriterLock&) = delete;
    ~ReaderWriterLock()
    {
        pthread_cond_destroy(&_readersAdmitted);
    }

    bool isHeld() const
    {
        return _state.load(std::memory_order_acquire) != 0;
    }

    /** Returns true if threads wait for the lock. */
    bool hasWaiters()
    {
        const Guard guard(_mutex);
        return (_state.load(std::memory_order_acquire) & HAS_WAITERS) != 0;
    }

    qv_err_t lockShared()
    {
        qv_err_t status = tryLockShared();
        if (status == EBUSY) {
            QV_PROBE_LOCK_CONTENDED(this);
            status = waitShared();
            QV_PROBE_LOCK_ACQUIRED(this, status);
        }
        return status;
    }

    qv_err_t lockExclusive()
    {
        qv_err_t status = tryLockExclusive();
        if (status != 0) {
            QV_PROBE_LOCK_CONTENDED(this);
            status = waitExclusive();
            QV_PROBE_LOCK_ACQUIRED(this, status);
        }
        return status;
    }

    /** Returns EBUSY if a writer holds the lock or waits for it. */
    qv_err_t tryLockShared()
    {
        const si_uint32_t expected = _state.load(std::memory_order_relaxed);
        if ((expected & (WRITER | HAS_WAITERS)) != 0) {
            return EBUSY;
        }
        if (expected > UNCHECKED_READERS) {
            return tryLockSharedChecked();
        }
        qv::perturb();
        const si_uint32_t state = _state.fetch_add(1, std::memory_order_acquire);
        return (state & (WRITER | HAS_WAITERS)) == 0 ? 0 : withdrawReader();
    }

    /** Returns EBUSY if the lock is held. */
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
        while ((state & HAS_WAITERS) == 0) {
            if (state == 0) {
                return EPERM;
            }
            const si_uint32_t left = (state & WRITER) != 0 ? state & ~WRITER : state - 1;
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
            // HAS_WAITERS is preserved: waiting threads continue to wait. The mutex is not needed, since only
            // the caller could hand the lock over.
            qv::perturb();
            if (_state.compare_exchange_weak(state, (state & HAS_WAITERS) | WRITER, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
                return 0;
            }
        }
        return (state & WRITER) != 0 || (state & READERS) == 0 ? EPERM : EBUSY;
    }

private:
    // The operations below are not inlined: they would slow down the fast paths by saving registers there.

    /** As tryLockShared(), if so many threads are readers that their number may overflow. */
    [[gnu::noinline]] qv_err_t tryLockSharedChecked()
    {
        si_uint32_t state = _state.load(std::memory_order_relaxed);
        while ((state & (WRITER | HAS_WAITERS)) == 0) {
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

    /**
     * Removes a reader that has added itself although a writer holds the lock or waits for it. Returns EBUSY,
     * or 0 if that was over first: the reader holds shared access.
     */
    [[gnu::noinline]] qv_err_t withdrawReader()
    {
        qv::perturb();
        si_uint32_t state = _state.load(std::memory_order_acquire);
        for (;;) {
            if ((state & (WRITER | HAS_WAITERS)) == 0) {
                return 0;
            }
            if ((state & HAS_WAITERS) != 0) {
                return withdrawFromWaiters();
            }
            qv::perturb();
            if (_state.compare_exchange_weak(state, state - 1, std::memory_order_release,
                                             std::memory_order_acquire)) {
                return EBUSY;
            }
        }
    }

    /** As withdrawReader(), while threads wait. */
    qv_err_t withdrawFromWaiters()
    {
        const Guard guard(_mutex);
        si_uint32_t state = _state.load(std::memory_order_acquire);
        for (;;) {
            if ((state & (WRITER | HAS_WAITERS)) == 0) {
                return 0;
            }
            if ((state & WRITER) == 0) {
                releaseShared(state);
                return EBUSY;
            }
            qv::perturb();
            if (_state.compare_exchange_weak(state, state - 1, std::memory_order_release,
                                             std::memory_order_acquire)) {
                return EBUSY;
            }
        }
    }

    [[gnu::noinline]] qv_err_t waitShared()
    {
        // A waiting thread is registered, and may already own the lock.
        const qv::CancellationOff cancellationOff;
        const Guard guard(_mutex);

        si_uint32_t state = _state.load(std::memory_order_relaxed);
        for (;;) {
            if ((state & (WRITER | HAS_WAITERS)) == 0) {
                if (state == READERS) {
                    return EAGAIN;
                }
                qv::perturb();
                if (_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                                 std::memory_order_relaxed)) {
                    return 0;
                }
            } else if (_state.compare_exchange_weak(state, state | HAS_WAITERS, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                break;
            }
        }

        // All waiting readers are admitted together, by incrementing _readerAdmission.
        ++_waitingReaders;
        const si_uint32_t admission = _readerAdmission;
        while (admission == _readerAdmission) {
            _mutex.wait(_readersAdmitted);
        }
        return 0;
    }

    [[gnu::noinline]] qv_err_t waitExclusive()
    {
        // A waiting thread is registered, and may already own the lock.
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
            } else if (_state.compare_exchange_weak(state, state | HAS_WAITERS, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
                break;
            }
        }

        WaitingWriter self;
        *_lastWriter = &self;
        _lastWriter = &self.next;
        for (;;) {
            _mutex.wait(self.wakeUp);
            si_uint32_t free = HAS_WAITERS;
            if (self.isAdmitted || (_firstWriter == &self && admitFirst(free))) {
                return 0;
            }
        }
    }

    /** Releases access while threads wait. Returns EPERM if no thread holds the lock. */
    [[gnu::noinline]] qv_err_t handOver()
    {
        const Guard guard(_mutex);
        const si_uint32_t state = _state.load(std::memory_order_acquire);
        if ((state & (WRITER | READERS)) == 0) {
            return EPERM;
        }
        if ((state & WRITER) != 0) {
            releaseExclusive();
        } else {
            releaseShared(state);
        }
        return 0;
    }

    /** Releases the access of a writer. */
    void releaseExclusive() DALNIM_REQUIRES(_mutex)
    {
        if (_waitingReaders != 0) {
            admitReaders();
            return;
        }
        // Readers that have added themselves are about to remove themselves.
        si_uint32_t state = _state.load(std::memory_order_relaxed);
        while (!admitOrWakeWriter(state)) {
        }
    }

    /** Releases the access of a reader while a writer waits. `state` was loaded with acquire order. */
    void releaseShared(si_uint32_t state) DALNIM_REQUIRES(_mutex)
    {
        for (;;) {
            qv::perturb();
            if ((state & READERS) == 1) {
                if (admitOrWakeWriter(state)) {
                    return;
                }
            } else if (_state.compare_exchange_weak(state, state - 1, std::memory_order_release,
                                                    std::memory_order_acquire)) {
                return;
            }
        }
    }

    void admitReaders() DALNIM_REQUIRES(_mutex)
    {
        const si_uint32_t admitted = _waitingReaders;
        _waitingReaders = 0;
        ++_readerAdmission;
        si_uint32_t state = _state.load(std::memory_order_relaxed);
        while (!_state.compare_exchange_weak(state, ((state & READERS) + admitted) | waitersFlag(),
                                             std::memory_order_release, std::memory_order_relaxed)) {
        }
        pthread_cond_broadcast(&_readersAdmitted);
    }

    /**
     * Releases the access that `state` contains, a writer's or the last reader's: admits the first waiting
     * writer, or wakes it to compete for the lock. Returns false, with the current state, if it has changed.
     */
    bool admitOrWakeWriter(si_uint32_t& state) DALNIM_REQUIRES(_mutex)
    {
        WaitingWriter& first = *_firstWriter;
        const si_int64_t time = now();
        if (time >= _nextHandOver) {
            if (!admitFirst(state)) {
                return false;
            }
            _nextHandOver = time + HAND_OVER_INTERVAL;
        } else if (!_state.compare_exchange_strong(state, readersBesides(state) | HAS_WAITERS,
                                                   std::memory_order_release, std::memory_order_acquire)) {
            return false;
        }
        pthread_cond_signal(&first.wakeUp);
        return true;
    }

    /**
     * Makes the first waiting writer the owner of the lock, in place of the access that `state` contains.
     * Returns false, with the current state, if it has changed.
     */
    bool admitFirst(si_uint32_t& state) DALNIM_REQUIRES(_mutex)
    {
        WaitingWriter& first = *_firstWriter;
        const si_uint32_t others = _waitingReaders != 0 || first.next != nullptr ? HAS_WAITERS : 0;
        if (!_state.compare_exchange_strong(state, readersBesides(state) | WRITER | others,
                                            std::memory_order_acq_rel, std::memory_order_acquire)) {
            return false;
        }
        _firstWriter = first.next;
        if (_firstWriter == nullptr) {
            _lastWriter = &_firstWriter;
        }
        first.isAdmitted = true;
        return true;
    }

    /** Returns the readers of `state` without the last one, if that is the access to be released. */
    static si_uint32_t readersBesides(si_uint32_t state)
    {
        return (state & WRITER) != 0 ? state & READERS : 0;
    }

    si_uint32_t waitersFlag() const DALNIM_REQUIRES(_mutex)
    {
        return _waitingReaders != 0 || _firstWriter != nullptr ? HAS_WAITERS : 0;
    }

    /** In microseconds. Longer than waking a thread takes, and too short to be noticed. */
    static constexpr si_int64_t HAND_OVER_INTERVAL = 100;

    std::atomic<si_uint32_t> _state{0};
    Mutex _mutex;
    pthread_cond_t _readersAdmitted = PTHREAD_COND_INITIALIZER;
    si_uint32_t _waitingReaders DALNIM_GUARDED_BY(_mutex) = 0;
    /** Incremented when the waiting readers are admitted. */
    si_uint32_t _readerAdmission DALNIM_GUARDED_BY(_mutex) = 0;
    /** FIFO list of waiting writers, and the link that the next one is appended to. */
    WaitingWriter* _firstWriter DALNIM_GUARDED_BY(_mutex) DALNIM_PT_GUARDED_BY(_mutex) = nullptr;
    WaitingWriter** _lastWriter DALNIM_GUARDED_BY(_mutex) DALNIM_PT_GUARDED_BY(_mutex) = &_firstWriter;
    /** Time from which a writer is admitted again, by now(). */
    si_int64_t _nextHandOver DALNIM_GUARDED_BY(_mutex) = 0;
};

/** Returns the implementation of a lock, or null if the lock is not initialised. */
ReaderWriterLock* implementationOf(const si_rwlock_t* lock)
{
    return lock != nullptr && lock->magic == MAGIC_INITIALIZED ? static_cast<ReaderWriterLock*>(lock->val)
                                                               : nullptr;
}

}

const si_rwlock_t qv_si_rwlock_empty_lock_extern = {nullptr, MAGIC_UNINITIALIZED};

qv_err_t qv_si_rw_init(si_rwlock_t* lock, const char* attributes) noexcept
{
    if (lock == nullptr || attributes != nullptr) {
        return EINVAL;
    }
    if (implementationOf(lock) != nullptr) {
        return EBUSY;
    }
    lock->val = new (std::nothrow) ReaderWriterLock;
    if (lock->val == nullptr) {
        return ENOMEM;
    }
    lock->magic = MAGIC_INITIALIZED;
    return 0;
}

qv_err_t qv_si_rw_destroy(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    if (implementation == nullptr) {
        return EINVAL;
    }
    if (implementation->isHeld()) {
        return EBUSY;
    }
    *lock = qv_si_rwlock_empty_lock_extern;
    delete implementation;
    return 0;
}

qv_err_t qv_si_rw_rdlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    return implementation != nullptr ? implementation->lockShared() : EINVAL;
}

qv_err_t qv_si_rw_wrlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    return implementation != nullptr ? implementation->lockExclusive() : EINVAL;
}

qv_err_t qv_si_rw_tryrdlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    return implementation != nullptr ? implementation->tryLockShared() : EINVAL;
}

qv_err_t qv_si_rw_trywrlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    return implementation != nullptr ? implementation->tryLockExclusive() : EINVAL;
}

// Releases a lock that consists of atomic operations.
DALNIM_NO_LOCK_ANALYSIS qv_err_t qv_si_rw_unlock(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    return implementation != nullptr ? implementation->unlock() : EINVAL;
}

qv_err_t qv_si_rw_upgrade(si_rwlock_t* lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(lock);
    return implementation != nullptr ? implementation->upgrade() : EINVAL;
}

void qv::abandon(si_rwlock_t& lock) noexcept
{
    ReaderWriterLock* const implementation = implementationOf(&lock);
    lock = qv_si_rwlock_empty_lock_extern;
    if (implementation != nullptr && !implementation->hasWaiters()) {
        delete implementation;
    }
}
