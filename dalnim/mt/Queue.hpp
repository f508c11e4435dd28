#ifndef DALNIM_MT_QUEUE_HPP
#define DALNIM_MT_QUEUE_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/QueueElement.hpp>
#include <dalnim/mt/SysMutex.hpp>

#include <atomic>

namespace com::kor::dal::nim::mt {

/**
 * A bounded first-in first-out queue between threads. Any number of producers and consumers may use
 * it at once; it must not be destroyed while one of them is inside.
 *
 * Ready, it takes elements up to its capacity. Completed, its consumers do not wait any more, while
 * producers are not stopped. Shut down, nothing goes in or out.
 *
 * The waits take milliseconds: 0 does not wait, 0xFFFFFFFF waits without limit. They are durations on the
 * monotonic clock: a change of the wall clock alters none.
 */
class DALNIM_API Queue : public virtual type::Object
{
public:
    static constexpr const char CLASS_NAME[] = "Queue";

    /** @param maxelems the capacity as it stands: a queue of 0 never takes an element */
    explicit Queue(unsigned int maxelems);
    /** Shuts down. */
    ~Queue() noexcept(false) override;

    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /**
     * Appends an element, waiting for room, and owns it from then on. False, and the element stays
     * the caller's, at the time-out, when the queue is full, and when it is shut down.
     */
    bool insert(QueueElement* elem, unsigned int max_wait_ms = 0xFFFFFFFF);
    /**
     * Takes the oldest element out, waiting for one; it is the caller's then. Null at the time-out,
     * when the queue is empty and completed, and when it is shut down.
     */
    QueueElement* next(unsigned int max_wait_ms = 0xFFFFFFFF);
    /** Lets consumers of an empty queue go instead of waiting. What is queued can still be taken. */
    void complete();
    /**
     * Ends the queue and wakes everybody. What is left is deleted, or released if it is counted,
     * without the queue's lock.
     */
    void shutdown();

    /** Whether complete() was called and the queue is not shut down. */
    bool completed() const noexcept
    {
        return (flags & COMPLETED) != 0;
    }
    /** Whether the queue takes elements, as long as there is room. */
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

    /** Guards all below. */
    SysMutex sync;
    /** On `sync`; producers and consumers wait on it alike, so every wake-up is a broadcast. */
    CondSem sig;
    /** Written under `sync`; also read without it. */
    std::atomic<UInt32_t> flags;
    const unsigned int max_elems;
    UInt32_t cur_elems;
    /** The oldest element, null when the queue is empty. */
    QueueElement* next_elem;
    QueueElement* last_elem;
};

}

#endif
