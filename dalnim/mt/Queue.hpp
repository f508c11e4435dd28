#ifndef DALNIM_MT_QUEUE_HPP
#define DALNIM_MT_QUEUE_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/QueueElement.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <qv/pmx/thread_safety.h>

#include <atomic>

namespace com::kor::dal::nim::mt {

/**
 * A bounded FIFO queue between threads.
 *
 * States: a ready queue accepts elements up to its capacity. In a completed queue, consumers no longer wait;
 * producers can still insert. A queue that was shut down accepts and returns nothing.
 *
 * Time-outs are in milliseconds: 0 does not wait, 0xFFFFFFFF waits without limit. They are durations on the
 * monotonic clock, which changes of the wall clock do not affect.
 *
 * Thread safety: any number of threads may insert and remove elements concurrently. The queue must not be
 * destroyed while one of its operations is running.
 */
class DALNIM_API Queue : public virtual type::Object
{
public:
    static constexpr const char CLASS_NAME[] = "Queue";

    /** @param maxelems  the capacity; a queue with capacity 0 accepts no element */
    explicit Queue(unsigned int maxelems);
    /** Calls shutdown(). */
    ~Queue() noexcept(false) override;

    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /**
     * Appends an element. Blocks while the queue is full.
     * @param elem         the element, which the queue owns if the result is true
     * @param max_wait_ms  time-out in milliseconds
     * @return false if the queue was still full at the time-out, or has been shut down; `elem` remains the
     *         caller's then, as it does if this throws
     * @throws sys::system_error  if locking fails, with the error number of the cause
     */
    bool insert(QueueElement* elem, unsigned int max_wait_ms = 0xFFFFFFFF);
    /**
     * Removes the oldest element and returns it. Blocks while the queue is empty and not completed.
     * @param max_wait_ms  time-out in milliseconds
     * @return the element, owned by the caller. Null if the queue was still empty at the time-out, is empty
     *         and completed, or has been shut down
     * @throws sys::system_error  if locking fails, with the error number of the cause
     */
    QueueElement* next(unsigned int max_wait_ms = 0xFFFFFFFF);
    /** Completes the queue: next() no longer waits. Elements can still be inserted and removed. */
    void complete();
    /**
     * Shuts the queue down and wakes all waiting threads. Destroys the elements that it contains: releases
     * those that are reference-counted, deletes the others. The lock of the queue is not held then.
     */
    void shutdown();

    /** Returns true if complete() was called and the queue has not been shut down. */
    bool completed() const noexcept
    {
        return (flags & COMPLETED) != 0;
    }
    /** Returns true if the queue accepts elements, unless it is full. */
    bool ready() const noexcept
    {
        return (flags & READY) != 0;
    }

private:
    class Deadline;

    static constexpr UInt32_t CONSTRUCTING = 1;
    static constexpr UInt32_t READY = 2;
    static constexpr UInt32_t COMPLETED = 4;
    static constexpr UInt32_t SHUT_DOWN = 8;

    static void destroy(QueueElement* elements);

    SysMutex sync;
    /** Uses `sync`. Producers and consumers wait on the same condition, so every wake-up is a broadcast. */
    CondSem sig;
    /** State bits. Written under `sync`, also read without it. */
    std::atomic<UInt32_t> flags;
    /** The capacity. */
    const unsigned int max_elems;
    /** Number of elements. */
    UInt32_t cur_elems DALNIM_GUARDED_BY(sync);
    /** The oldest element, or null. */
    QueueElement* next_elem DALNIM_GUARDED_BY(sync);
    /** The newest element, or null. */
    QueueElement* last_elem DALNIM_GUARDED_BY(sync) DALNIM_PT_GUARDED_BY(sync);
};

}

#endif
