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
 * The failure that is stored if there is no memory for the actual one, so that waiting threads receive an
 * exception. Allocated when the library is loaded, and never freed: closures run until the process ends.
 */
// NOLINTNEXTLINE(cert-err58-cpp): a program that is loaded without memory for this is terminated
RX_Exception* const outOfMemoryFailure = std::make_unique<RX_ExFatal>(ENOMEM).release();

/** Returns a copy of the current exception, for store(). */
RX_Exception* currentFailure()
{
    try {
        return RX_analyzeCurrentException_();
    } catch (const std::bad_alloc&) {
        return outOfMemoryFailure;
    }
}

/** Returns the failure of a call that has ended its thread, for store(). */
RX_Exception* threadEndFailure()
{
    RX_Exception* const failure = new (std::nothrow) RX_ExFatal(ECANCELED);
    return failure != nullptr ? failure : outOfMemoryFailure;
}

/** Replaces the stored failure; `outOfMemoryFailure` is shared and must not be deleted. */
void store(std::unique_ptr<RX_Exception>& stored, RX_Exception* failure)
{
    if (stored.get() == outOfMemoryFailure) {
        static_cast<void>(stored.release());
    }
    stored.reset(failure);
}

}

RX_ClosureSync_::RX_ClosureSync_() : _cond(*this)
{
    _construction.complete();
}

RX_ClosureSync_::~RX_ClosureSync_() noexcept(false)
{
    store(_ex, nullptr);
}

void RX_ClosureSync_::apply()
{
    try {
        call_();
    } catch (...) {
        if (qv::isThreadEnding()) {
            failWithThreadEnd();
            throw;
        }
        store(_ex, currentFailure());
    }
    markDone();
}

void RX_ClosureSync_::failWithCurrentException()
{
    store(_ex, currentFailure());
    markDone();
}

/** Reports that the call has ended its thread, unless the call has already marked the closure as done. */
void RX_ClosureSync_::failWithThreadEnd()
{
    bool isDone = false;
    {
        const RX_Locked_ locked(*this);
        isDone = _done != 0;
    }
    if (!isDone) {
        store(_ex, threadEndFailure());
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
    throwFailure();
}

void RX_ClosureSync_::waitForCompletion(const RX_Time& deadline)
{
    {
        // Computed once: a spurious wake-up must not restart a duration.
        const RX_AbsTime limit = deadline.deadline();
        const RX_Locked_ locked(*this);
        while (!_done) {
            if (!_cond.timedWait(limit) && !_done) {
                throw RX_ExWarning(ETIME);
            }
        }
    }
    throwFailure();
}

void RX_ClosureSync_::throwFailure() const
{
    if (_ex) {
        _ex->throwThis();
    }
}
