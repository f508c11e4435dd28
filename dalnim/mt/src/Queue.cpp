#include <dalnim/dalbase.hpp>

#include <dalnim/mt/Queue.hpp>

#include <dalnim/mem/ObjectHolder.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <chrono>

namespace com::kor::dal::nim::mt {

namespace {

constexpr unsigned int NO_WAIT = 0;
constexpr unsigned int NO_LIMIT = 0xFFFFFFFF;

typedef MutexHolder<MutexOps> LockHolder;

}

/** The end of a wait: immediately, after a duration on the monotonic clock, or never. */
class Queue::Deadline
{
public:
    explicit Deadline(unsigned int max_wait_ms) : wait(max_wait_ms)
    {
        if (isTimed()) {
            end = Clock::now() + std::chrono::milliseconds(max_wait_ms);
        }
    }

    /** Waits for a wake-up. Returns false if the deadline has passed or the wait fails. */
    bool waitOn(const CondSem& condition) const
    {
        if (!isTimed()) {
            return wait == NO_LIMIT && condition.wait(NO_LIMIT);
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        // Not greater than `wait`, since the clock is monotonic.
        return left > 0 && condition.wait(static_cast<unsigned int>(left));
    }

private:
    typedef std::chrono::steady_clock Clock;

    bool isTimed() const
    {
        return wait != NO_WAIT && wait != NO_LIMIT;
    }

    const unsigned int wait;
    Clock::time_point end;
};

Queue::Queue(unsigned int maxelems)
    : sig(sync), flags(CONSTRUCTING), max_elems(maxelems), cur_elems(0), next_elem(nullptr),
      last_elem(nullptr)
{
    flags = READY;
}

Queue::~Queue() noexcept(false)
{
    const sys::StackTrack track("~Queue()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    shutdown();
}

bool Queue::insert(QueueElement* elem, unsigned int max_wait_ms)
{
    const sys::StackTrack track("insert()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const Deadline deadline(max_wait_ms);
    const LockHolder holder(sync.acquire());
    while ((flags & READY) != 0 && cur_elems >= max_elems && deadline.waitOn(sig)) {
    }
    if ((flags & READY) == 0 || cur_elems >= max_elems) {
        return false;
    }
    if (cur_elems == 0) {
        // First: if this fails, the element remains the caller's.
        sig.broadcast();
        next_elem = elem;
    } else {
        last_elem->next = elem;
    }
    elem->next = nullptr;
    last_elem = elem;
    ++cur_elems;
    return true;
}

QueueElement* Queue::next(unsigned int max_wait_ms)
{
    const sys::StackTrack track("next()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const Deadline deadline(max_wait_ms);
    const LockHolder holder(sync.acquire());
    while ((flags & (READY | COMPLETED)) == READY && cur_elems == 0 && deadline.waitOn(sig)) {
    }
    if ((flags & (READY | COMPLETED)) == 0 || cur_elems == 0) {
        return nullptr;
    }
    if (cur_elems == max_elems) {
        // Producers that wait for capacity continue when the lock is released.
        sig.broadcast();
    }
    QueueElement* const elem = next_elem;
    next_elem = elem->next;
    elem->next = nullptr;
    if (--cur_elems == 0) {
        last_elem = nullptr;
    }
    return elem;
}

void Queue::complete()
{
    const sys::StackTrack track("complete()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const LockHolder holder(sync.acquire());
    if (flags == SHUT_DOWN || (flags & COMPLETED) != 0) {
        return;
    }
    // READY stays set, since completion does not stop producers.
    flags |= COMPLETED;
    sig.broadcast();
}

void Queue::shutdown()
{
    const sys::StackTrack track("shutdown()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    LockHolder holder(sync.acquire());
    if (flags == SHUT_DOWN && next_elem == nullptr) {
        return;
    }
    QueueElement* const elements = next_elem;
    cur_elems = 0;
    next_elem = nullptr;
    last_elem = nullptr;
    flags = SHUT_DOWN;
    sig.broadcast();
    holder.release(true);
    destroy(elements);
}

void Queue::destroy(QueueElement* elements)
{
    while (elements != nullptr) {
        QueueElement* const elem = elements;
        elements = elem->next;
        const mem::ObjectHolder holder(elem, mem::ObjectHolder::SM_DEREF_ONLY);
    }
}

}
