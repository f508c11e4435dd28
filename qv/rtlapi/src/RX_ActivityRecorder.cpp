#include <qv/rtlapi/RX_ActivityRecorder.hpp>

#include <qv/pmx/errors.h>
#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>

RX_ActivityRecorder::RX_ActivityRecorder() : _quiet(*this)
{
    _construction.complete();
}

RX_ActivityRecorder::~RX_ActivityRecorder() noexcept(false) = default;

// The order of the two counts in the C++ memory model. Every change of `_finished` is a read-modify-write
// with memory_order_acq_rel, so that a thread that reads n finished closures by an acquiring load or exchange
// synchronises with all n decrements. Each closure was counted by inc() before its dec() was called: the n
// calls of inc() happen before that read, and so does the inc() of the caller's own closure in dec(). A
// load of `_started` that is sequenced after the read therefore yields at least n, and n + 1 in dec(), by
// coherence. With memory_order_relaxed, `_finished` might be loaded after `_started`, as on ARM64: the
// backlog could then appear to be 0 or negative.
//
// `_startedBound` only ever contains former values of `_started`. It is a lower bound whatever the order
// of its stores is, and is replaced by `_started` itself if it does not suffice.

/** Returns the backlog at the moment at which `finished` was read, with memory_order_acquire. */
si_uint32_t RX_ActivityRecorder::backlogAt(si_uint64_t finished) const
{
    return static_cast<si_uint32_t>(_started.load(std::memory_order_acquire) - finished / ONE_CLOSURE);
}

si_uint32_t RX_ActivityRecorder::getBacklog() const
{
    // Both counts must be from one moment. They only increase: an unchanged count has not changed in between.
    for (si_uint64_t before = _finished.load(std::memory_order_acquire);;) {
        const si_uint32_t backlog = backlogAt(before);
        qv::perturb();
        const si_uint64_t after = _finished.load(std::memory_order_acquire);
        if (before / ONE_CLOSURE == after / ONE_CLOSURE) {
            return backlog;
        }
        before = after;
    }
}

void RX_ActivityRecorder::waitForQuiet() const
{
    // If the backlog is 0 and no other thread waits, the last `dec` does not access this object any more.
    const si_uint64_t finished = _finished.load(std::memory_order_acquire);
    if ((finished & HAS_WAITERS) == 0 && backlogAt(finished) == 0) {
        return;
    }
    const RX_Locked_ locked(*this);
    while (backlogAt(_finished.fetch_or(HAS_WAITERS, std::memory_order_acq_rel)) != 0) {
        _quiet.wait();
    }
    _finished.fetch_and(~HAS_WAITERS, std::memory_order_acq_rel);
}

qv_bool_t RX_ActivityRecorder::waitForQuiet(const RX_AbsTime& deadline) const
{
    const si_uint64_t finished = _finished.load(std::memory_order_acquire);
    if ((finished & HAS_WAITERS) == 0 && backlogAt(finished) == 0) {
        return 1;
    }
    const RX_Locked_ locked(*this);
    while (backlogAt(_finished.fetch_or(HAS_WAITERS, std::memory_order_acq_rel)) != 0) {
        if (!_quiet.timedWait(deadline)) {
            // Other threads that wait set the bit again.
            const si_uint64_t last = _finished.fetch_and(~HAS_WAITERS, std::memory_order_acq_rel);
            _quiet.broadcast();
            return backlogAt(last) == 0;
        }
    }
    _finished.fetch_and(~HAS_WAITERS, std::memory_order_acq_rel);
    return 1;
}

void RX_ActivityRecorder::inc()
{
    _started.fetch_add(1, std::memory_order_acq_rel);
}

void RX_ActivityRecorder::dec()
{
    for (si_uint64_t finished = _finished.load(std::memory_order_acquire);;) {
        qv::perturb();
        // Only if threads wait, the last decrement must be recognised.
        const bool hasWaiters = (finished & HAS_WAITERS) != 0;
        const si_uint64_t backlog = minimalBacklog(hasWaiters ? 2 : 1, finished);
        if (backlog == 0) {
            throw RX_ExFatal(__LINE__, "qv/rtlapi/src/RX_ActivityRecorder", QV_RX_CONDITION, "_backlog > 0");
        }
        if (hasWaiters && backlog == 1) {
            if (finishLast()) {
                return;
            }
            finished = _finished.load(std::memory_order_acquire);
        } else if (_finished.compare_exchange_weak(finished, finished + ONE_CLOSURE,
                                                   std::memory_order_acq_rel, std::memory_order_acquire)) {
            return;
        }
        // A failed exchange has reloaded `_finished`, with which `_started` is compared again.
    }
}

/** Returns a lower bound of the backlog if that is at least `sufficient`, otherwise the backlog itself. */
si_uint64_t RX_ActivityRecorder::minimalBacklog(si_uint64_t sufficient, si_uint64_t finished)
{
    si_uint64_t started = _startedBound.load(std::memory_order_acquire);
    if (started < finished / ONE_CLOSURE + sufficient) {
        started = _started.load(std::memory_order_acquire);
        _startedBound.store(started, std::memory_order_release);
    }
    return started - finished / ONE_CLOSURE;
}

/**
 * Counts the last closure, under the lock: waiting threads continue after the last access to this object.
 * Returns false, without counting it, if the waits have ended: a thread that then found the backlog to be 0
 * would not wait for the lock, and might destroy it.
 */
bool RX_ActivityRecorder::finishLast()
{
    const RX_Locked_ locked(*this);
    qv::perturb();
    if ((_finished.load(std::memory_order_acquire) & HAS_WAITERS) == 0) {
        return false;
    }
    const si_uint64_t before = _finished.fetch_add(ONE_CLOSURE, std::memory_order_acq_rel);
    if (backlogAt(before) == 1) {
        _quiet.broadcast();
    }
    return true;
}

void RX_ActivityRecorder::connect(RX_ServerQueue*) {}

void RX_ActivityRecorder::disconnect(RX_ServerQueue*) {}
