#include <qv/rtlapi/RX_ClosureSync_.hpp>

#include <cerrno>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/src/detached.hpp>

RX_ClosureSync_::RX_ClosureSync_()
    : _cond(*this)
{
}

RX_ClosureSync_::~RX_ClosureSync_() noexcept(false) = default;

void RX_ClosureSync_::apply()
{
    try {
        call_();
    } catch (...) {
        if (qv::isThreadEnding()) {
            _ex.reset(new RX_ExFatal(ECANCELED));
            markDone();
            throw;
        }
        _ex.reset(RX_analyzeCurrentException_());
    }
    markDone();
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
