#include <qv/rtlapi/src/IdleWorkers.hpp>

#include <atomic>

#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/processor.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>

namespace {

constexpr unsigned int CACHE_LINE = 64;

/** Number of polls of the spinning worker before it parks. Parking and waking a thread takes longer. */
constexpr int SPINS = 64;

/** Number of polls for its response, which arrives within two or three if the worker is running. */
constexpr int RESPONSE_SPINS = 32;

enum class State { ACTIVE, IDLE, WOKEN };

constexpr si_uint64_t NEVER = 0;

}

/**
 * A worker's wait node, on a cache line of its own: its waker polls it. Its condition has at most one waiter,
 * so a signal cannot wake the wrong worker.
 */
class alignas(CACHE_LINE) qv::IdleWorkers::Waiter
{
public:
    explicit Waiter(RX_Mutex& mutex) : wokenUp(mutex) {}

    const RX_Condition wokenUp;
    /** The next node of the list that this one is in. */
    Waiter* next = nullptr;
    /** Whether the worker spins before it parks. Used by the worker alone. */
    bool mustSpin = false;
    /** Value of `_pushCount` when the worker was woken, if it is one of `_wokenCount`. */
    si_uint64_t wokenAt = NEVER;
    /**
     * Changes only under the lock, except that a spinning worker responds to WOKEN with ACTIVE. Relaxed: the
     * state is all that the worker and its waker pass to each other without the lock; closures are passed
     * under the locks.
     */
    std::atomic<State> state{State::ACTIVE};
};

/** Removes a worker from the idle ones at the end of its wait. */
class qv::IdleWorkers::ParkGuard
{
public:
    ParkGuard(IdleWorkers& workers, Waiter& waiter) noexcept DALNIM_REQUIRES(workers._mutex)
        : _workers(workers), _waiter(waiter)
    {
    }
    ParkGuard(const ParkGuard&) = delete;
    ParkGuard& operator=(const ParkGuard&) = delete;
    ~ParkGuard()
    {
        _workers.leave(_waiter);
    }

private:
    IdleWorkers& _workers;
    Waiter& _waiter;
};

qv::IdleWorkers::IdleWorkers(RX_Mutex& mutex) : _mutex(mutex) {}

qv::IdleWorkers::~IdleWorkers() noexcept(false) = default;

qv::IdleWorkers::Waiter& qv::IdleWorkers::addWaiter()
{
    if (_unused == nullptr) {
        _waiters.emplace_front(_mutex);
        return _waiters.front();
    }
    Waiter& waiter = *_unused;
    _unused = waiter.next;
    return waiter;
}

void qv::IdleWorkers::removeWaiter(Waiter& waiter) noexcept
{
    waiter.next = _unused;
    _unused = &waiter;
}

void qv::IdleWorkers::push(Waiter& waiter) noexcept
{
    waiter.state.store(State::IDLE, std::memory_order_relaxed);
    waiter.mustSpin = _spinner == nullptr;
    if (waiter.mustSpin) {
        _spinner = &waiter;
    } else {
        park(waiter);
    }
    ++_count;
    // The queue is empty: workers that were woken earlier come too late, and the next closure must not wait
    // for them.
    ++_pushCount;
    _wokenCount = 0;
}

void qv::IdleWorkers::wait(Waiter& waiter)
{
    if (waiter.mustSpin) {
        spin(waiter);
    }
    const RX_Locked_ locked(_mutex);
    const ParkGuard guard(*this, waiter);
    if (_spinner == &waiter) {
        _spinner = nullptr;
        park(waiter);
    }
    while (waiter.state.load(std::memory_order_relaxed) == State::IDLE) {
        waiter.wokenUp.wait();
    }
}

bool qv::IdleWorkers::isIdle(const Waiter& waiter) const noexcept
{
    return waiter.state.load(std::memory_order_relaxed) != State::ACTIVE;
}

/** Polls for a few microseconds, or until the worker is woken, to which it responds. */
void qv::IdleWorkers::spin(Waiter& waiter) noexcept
{
    for (int i = 0; i < SPINS; ++i) {
        if (waiter.state.load(std::memory_order_relaxed) == State::WOKEN) {
            qv::perturb();
            waiter.state.store(State::ACTIVE, std::memory_order_relaxed);
            return;
        }
        qv::pausePolling();
    }
}

/** Pushes a worker onto the stack of parked workers. */
void qv::IdleWorkers::park(Waiter& waiter) noexcept
{
    waiter.next = _parked;
    _parked = &waiter;
}

/** Ends the idle state of a worker, whether it has been woken or not. */
void qv::IdleWorkers::leave(Waiter& waiter) noexcept
{
    if (waiter.state.load(std::memory_order_relaxed) == State::IDLE) {
        // The thread was cancelled before it was woken.
        Waiter** link = &_parked;
        while (*link != &waiter) {
            link = &(*link)->next;
        }
        *link = waiter.next;
    }
    waiter.state.store(State::ACTIVE, std::memory_order_relaxed);
    if (waiter.wokenAt == _pushCount) {
        --_wokenCount;
    }
    waiter.wokenAt = NEVER;
    --_count;
}

/** Wakes the spinning worker or, if there is none, the one that was parked last. */
qv::IdleWorkers::Wakeup qv::IdleWorkers::wake() noexcept
{
    if (Waiter* const spinner = wakeSpinner()) {
        // Without a parked worker there is none to replace it.
        return _parked != nullptr ? Wakeup{spinner, true} : Wakeup();
    }
    return Wakeup{wakeParked(), false};
}

void qv::IdleWorkers::wakeAll()
{
    wakeSpinner();
    while (_parked != nullptr) {
        wakeParked()->wokenUp.signal();
    }
}

/** Wakes the spinning worker, if any. It is not counted, since it may have been preempted. */
qv::IdleWorkers::Waiter* qv::IdleWorkers::wakeSpinner() noexcept
{
    Waiter* const spinner = _spinner;
    if (spinner != nullptr) {
        _spinner = nullptr;
        spinner->state.store(State::WOKEN, std::memory_order_relaxed);
    }
    return spinner;
}

/** Pops the worker that was parked last; its condition must then be signalled. */
qv::IdleWorkers::Waiter* qv::IdleWorkers::wakeParked() noexcept
{
    Waiter* const parked = _parked;
    _parked = parked->next;
    parked->state.store(State::WOKEN, std::memory_order_relaxed);
    parked->wokenAt = _pushCount;
    ++_wokenCount;
    return parked;
}

bool qv::IdleWorkers::deliver(Wakeup wakeup) const
{
    qv::perturb();
    if (!wakeup.mustRespond) {
        wakeup.waiter->wokenUp.signal();
        return true;
    }
    for (int i = 0; i < RESPONSE_SPINS; ++i) {
        if (wakeup.waiter->state.load(std::memory_order_relaxed) != State::WOKEN) {
            return true;
        }
        qv::pausePolling();
    }
    return false;
}
