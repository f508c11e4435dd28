#include <qv/rtlapi/RX_ClosureSync_.hpp>

#include <cerrno>
#include <memory>
#include <new>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/src/userCode.hpp>

namespace {

/**
 * What is kept where there is no memory to keep the failure itself: who waits must learn of it. Made at
 * load and never given back, for closures run until the process has ended.
 */
// NOLINTNEXTLINE(cert-err58-cpp): what is loaded without memory for this ends
RX_Exception* const withoutMemory = std::make_unique<RX_ExFatal>(ENOMEM).release();

RX_Exception* currentFailure()
{
    try {
        return RX_analyzeCurrentException_();
    } catch (const std::bad_alloc&) {
        return withoutMemory;
    }
}

RX_Exception* cancellation()
{
    RX_Exception* const failure = new (std::nothrow) RX_ExFatal(ECANCELED);
    return failure != nullptr ? failure : withoutMemory;
}

void keep(std::unique_ptr<RX_Exception>& kept, RX_Exception* failure)
{
    if (kept.get() == withoutMemory) {
        static_cast<void>(kept.release());
    }
    kept.reset(failure);
}

}

RX_ClosureSync_::RX_ClosureSync_() : _cond(*this)
{
    _construction.complete();
}

RX_ClosureSync_::~RX_ClosureSync_() noexcept(false)
{
    keep(_ex, nullptr);
}

void RX_ClosureSync_::apply()
{
    try {
        call_();
    } catch (...) {
        if (qv::isThreadEnding()) {
            endFromWithin();
            throw;
        }
        keep(_ex, currentFailure());
    }
    markDone();
}

void RX_ClosureSync_::failWithCurrentException()
{
    keep(_ex, currentFailure());
    markDone();
}

/** The call ends its thread. If it has marked the closure as done, the waiting threads learn nothing more. */
void RX_ClosureSync_::endFromWithin()
{
    bool isDone = false;
    {
        const RX_Locked_ locked(*this);
        isDone = _done != 0;
    }
    if (!isDone) {
        keep(_ex, cancellation());
        markDone();
    }
}

void RX_ClosureSync_::markDone()
{
    const RX_Locked_ locked(*this);
    _done = 1;
    _cond.broadcast();
}

void RX_ClosureSync_::waitForCompletion()
{
    {
        const RX_Locked_ locked(*this);
        while (!_done) {
            _cond.wait();
        }
    }
    raise();
}

void RX_ClosureSync_::waitForCompletion(const RX_Time& deadline)
{
    {
        // Fixed here once: a wake-up for nothing must not begin an interval anew.
        const RX_AbsTime limit = deadline.deadline();
        const RX_Locked_ locked(*this);
        while (!_done) {
            if (!_cond.timedWait(limit) && !_done) {
                throw RX_ExWarning(ETIME);
            }
        }
    }
    raise();
}

void RX_ClosureSync_::raise() const
{
    if (_ex) {
        _ex->throwThis();
    }
}
