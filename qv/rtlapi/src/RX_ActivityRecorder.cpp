#include <qv/rtlapi/RX_ActivityRecorder.hpp>

#include <qv/pmx/errors.h>
#include <qv/pmx/src/perturb.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>

RX_ActivityRecorder::RX_ActivityRecorder() : _quiet(*this)
{
    _construction.complete();
}

RX_ActivityRecorder::~RX_ActivityRecorder() noexcept(false) = default;

// The order of the two counts in the C++ memory model. Every change of `_ended` is a read-modify-write with
// memory_order_acq_rel, so that who reads n ended closures by an acquiring load or exchange synchronises with
// all n decrements. Each closure was counted by inc() before its dec() was called: the n calls of inc()
// happen before that read, and so does the inc() of the caller's own closure in dec(). A load of `_begun`
// that is sequenced after the read therefore yields at least n, and n + 1 in dec(), by coherence. Read
// relaxed,
// `_ended` might be loaded after `_begun`, as ARM64 does: the backlog would then seem to be 0 or negative.
//
// `_begunAtLeast` only ever holds former values of `_begun`. It is a lower bound whatever the order of its
// stores is, and is replaced by `_begun` itself if it does not suffice.

/** The backlog at the moment at which `ended` was read, with memory_order_acquire. */
si_uint32_t RX_ActivityRecorder::backlogBehind(si_uint64_t ended) const
{
    return static_cast<si_uint32_t>(_begun.load(std::memory_order_acquire) - ended / ONE);
}

si_uint32_t RX_ActivityRecorder::getBacklog() const
{
    // Both counts as they stood at one moment: neither comes back to a value that it had.
    for (si_uint64_t before = _ended.load(std::memory_order_acquire);;) {
        const si_uint32_t backlog = backlogBehind(before);
        qv::perturb();
        const si_uint64_t after = _ended.load(std::memory_order_acquire);
        if (before / ONE == after / ONE) {
            return backlog;
        }
        before = after;
    }
}

void RX_ActivityRecorder::waitForQuiet() const
{
    // A backlog of 0 that nobody else waits for is final: its last `dec` touches nothing any more.
    const si_uint64_t ended = _ended.load(std::memory_order_acquire);
    if ((ended & AWAITED) == 0 && backlogBehind(ended) == 0) {
        return;
    }
    const RX_Locked_ locked(*this);
    while (backlogBehind(_ended.fetch_or(AWAITED, std::memory_order_acq_rel)) != 0) {
        _quiet.wait();
    }
    _ended.fetch_and(~AWAITED, std::memory_order_acq_rel);
}

void RX_ActivityRecorder::inc()
{
    _begun.fetch_add(1, std::memory_order_acq_rel);
}

void RX_ActivityRecorder::dec()
{
    si_uint64_t ended = _ended.load(std::memory_order_acquire);
    do {
        qv::perturb();
        // Only where somebody waits it matters which one is the last.
        const bool isAwaited = (ended & AWAITED) != 0;
        const si_uint64_t backlog = backlogUpTo(isAwaited ? 2 : 1, ended);
        if (backlog == 0) {
            throw RX_ExFatal(__LINE__, "qv/rtlapi/src/RX_ActivityRecorder", QV_RX_CONDITION, "_backlog > 0");
        }
        if (isAwaited && backlog == 1) {
            endLast();
            return;
        }
        // A failure reads `_ended` again, for the next look at `_begun`.
    } while (!_ended.compare_exchange_weak(ended, ended + ONE, std::memory_order_acq_rel,
                                           std::memory_order_acquire));
}

/** The backlog behind `ended`, or what is known of it if that is at least `wanted`. */
si_uint64_t RX_ActivityRecorder::backlogUpTo(si_uint64_t wanted, si_uint64_t ended)
{
    si_uint64_t begun = _begunAtLeast.load(std::memory_order_acquire);
    if (begun < ended / ONE + wanted) {
        begun = _begun.load(std::memory_order_acquire);
        _begunAtLeast.store(begun, std::memory_order_release);
    }
    return begun - ended / ONE;
}

/** Counts the last closure: under the lock, so that those who wait go on only when nothing is touched here.
 */
void RX_ActivityRecorder::endLast()
{
    const RX_Locked_ locked(*this);
    qv::perturb();
    const si_uint64_t before = _ended.fetch_add(ONE, std::memory_order_acq_rel);
    if (backlogBehind(before) == 1) {
        _quiet.broadcast();
    }
}

void RX_ActivityRecorder::connect(RX_ServerQueue*) {}

void RX_ActivityRecorder::disconnect(RX_ServerQueue*) {}
