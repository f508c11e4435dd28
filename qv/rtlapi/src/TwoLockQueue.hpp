#ifndef QV_RTLAPI_SRC_TWOLOCKQUEUE_HPP
#define QV_RTLAPI_SRC_TWOLOCKQUEUE_HPP

#include <atomic>
#include <deque>
#include <new>

#include <qv/pmx/thread_safety.h>
#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>

class RX_Closure;

namespace qv {

/**
 * The pending closures of a server queue: a bounded FIFO queue with one lock for producers and one for
 * consumers, so that they rarely contend for a lock or for a cache line.
 *
 * Producers append to the producer side. Consumers pop from the consumer side. When that is empty, a consumer
 * takes both locks, the consumers' first, and swaps the two. It also takes both if it must wake
 * a blocked producer, and if setMustCheckState() requires it.
 *
 * The queue does not own the closures, nor does it call them.
 *
 * Thread safety: each operation declares the locks that it requires.
 */
class TwoLockQueue
{
public:
    typedef std::deque<RX_Closure*> Closures;

    /** The contents of a queue: first the older closures, then the newer ones. */
    struct DrainedClosures
    {
        Closures older;
        Closures newer;
    };

    class BlockedPut;

    /**
     * @param producerMutex  the lock of the producers, which must outlive the queue
     * @param capacity       maximum number of closures; push() does not check it
     * @throws std::bad_alloc  if memory runs out
     * @throws RX_Exception    if the system cannot create the condition variable, with its error number
     */
    TwoLockQueue(RX_Mutex& producerMutex, unsigned int capacity);
    TwoLockQueue(const TwoLockQueue&) = delete;
    TwoLockQueue& operator=(const TwoLockQueue&) = delete;
    ~TwoLockQueue() noexcept(false);

    /** Returns the lock of the consumers. If both are needed, it must be acquired first. */
    const RX_Mutex& consumerMutex() const noexcept DALNIM_RETURN_CAPABILITY(_consumer.mutex)
    {
        return _consumer.mutex;
    }

    /** Returns the lock of the producers. */
    const RX_Mutex& producerMutex() const noexcept DALNIM_RETURN_CAPABILITY(_producerMutex)
    {
        return _producerMutex;
    }

    /** Returns the number of closures. */
    si_uint32_t size() const noexcept DALNIM_REQUIRES(_producerMutex)
    {
        return static_cast<si_uint32_t>(_incoming.size()) + _consumer.size.load(std::memory_order_relaxed);
    }
    /** Returns true if there are fewer closures than the capacity. */
    bool hasCapacity() noexcept DALNIM_REQUIRES(_producerMutex)
    {
        if (_incoming.size() + _consumerSizeBound < _capacity) {
            return true;
        }
        _consumerSizeBound = _consumer.size.load(std::memory_order_relaxed);
        return _incoming.size() + _consumerSizeBound < _capacity;
    }
    /**
     * Appends a closure, even beyond the capacity.
     *
     * @throws std::bad_alloc  if memory runs out; another blocked producer is then woken instead of this one
     */
    void push(RX_Closure* closure) DALNIM_REQUIRES(_producerMutex)
    {
        try {
            _incoming.push_back(closure);
        } catch (const std::bad_alloc&) {
            // This producer may have been woken for the capacity that it does not use.
            _notFull.signal();
            throw;
        }
    }
    /** Wakes one blocked producer, or all of them. */
    void wakeBlockedPut() const DALNIM_REQUIRES(_producerMutex)
    {
        _notFull.signal();
    }
    void wakeBlockedPuts() const DALNIM_REQUIRES(_producerMutex)
    {
        _notFull.broadcast();
    }

    /** Returns the oldest closure, or null if that takes both locks to find out. */
    RX_Closure* popConsumerSide() DALNIM_REQUIRES(_consumer.mutex)
    {
        if (_consumer.mustCheckState.load(std::memory_order_relaxed)
            || _consumer.blockedPuts.load(std::memory_order_relaxed) != 0) {
            return nullptr;
        }
        return popFront();
    }

    /** Returns the oldest closure and wakes a blocked producer, or returns null if the queue is empty. */
    RX_Closure* pop() DALNIM_REQUIRES(_consumer.mutex, _producerMutex);
    /** Moves all closures to `drained`, which must be empty. Does not wake blocked producers. */
    void drain(DrainedClosures& drained) noexcept DALNIM_REQUIRES(_consumer.mutex, _producerMutex);
    /** Registers a producer that is about to create a BlockedPut. */
    void addBlockedPut() noexcept DALNIM_REQUIRES(_consumer.mutex, _producerMutex)
    {
        _consumer.blockedPuts.fetch_add(1, std::memory_order_relaxed);
    }
    /**
     * Makes popConsumerSide() return null, so that consumers take both locks, until it is set to false. The
     * change to true requires both locks, too.
     */
    void setMustCheckState(bool mustCheckState) noexcept DALNIM_REQUIRES(_producerMutex)
    {
        _consumer.mustCheckState.store(mustCheckState, std::memory_order_relaxed);
    }

private:
    static constexpr unsigned int CACHE_LINE = 64;

    RX_Closure* popFront() DALNIM_REQUIRES(_consumer.mutex)
    {
        if (_consumer.closures.empty()) {
            return nullptr;
        }
        RX_Closure* const closure = _consumer.closures.front();
        _consumer.closures.pop_front();
        _consumer.size.store(static_cast<si_uint32_t>(_consumer.closures.size()), std::memory_order_relaxed);
        return closure;
    }

    /**
     * The consumer side: the oldest closures. On cache lines of its own.
     *
     * The atomic members are read under one of the two locks, and increased or set under both. The locks
     * order what matters, so that all accesses are relaxed: an old value makes a producer take the slower
     * path, where it acquires both locks, or wakes a worker too many, and a consumer acquires both locks.
     */
    struct alignas(CACHE_LINE) ConsumerSide
    {
        /** Acquired before the lock of the producers. */
        RX_Mutex mutex;
        Closures closures DALNIM_GUARDED_BY(mutex);
        /** closures.size(). Grows only under both locks: an upper bound under the producers' lock alone. */
        std::atomic<si_uint32_t> size{0};
        /** Producers blocked on a full queue. Incremented under both locks, decremented under theirs. */
        std::atomic<si_uint32_t> blockedPuts{0};
        /** Whether consumers must take both locks. Set under both locks, cleared under the producers' lock.
         */
        std::atomic<bool> mustCheckState{false};
    };

    ConsumerSide _consumer;
    /** The producer side: closures put since the last swap. */
    alignas(CACHE_LINE) Closures _incoming DALNIM_GUARDED_BY(_producerMutex);
    /** Upper bound of `_consumer.size`, cached to avoid reading the consumers' cache line. */
    si_uint32_t _consumerSizeBound DALNIM_GUARDED_BY(_producerMutex) = 0;
    const unsigned int _capacity;
    const RX_Mutex& _producerMutex;
    RX_Condition _notFull;
};

/**
 * Counts a producer as blocked until it leaves the wait, also if its thread is cancelled there. Requires
 * addBlockedPut() before.
 */
class TwoLockQueue::BlockedPut
{
public:
    explicit BlockedPut(TwoLockQueue& queue) noexcept DALNIM_REQUIRES(queue._producerMutex) : _queue(queue) {}
    BlockedPut(const BlockedPut&) = delete;
    BlockedPut& operator=(const BlockedPut&) = delete;
    ~BlockedPut()
    {
        _queue._consumer.blockedPuts.fetch_sub(1, std::memory_order_relaxed);
    }

    /** Waits until a closure is popped, or until blocked producers are woken. */
    void wait() const
    {
        _queue._notFull.wait();
    }

private:
    TwoLockQueue& _queue;
};

}

#endif
