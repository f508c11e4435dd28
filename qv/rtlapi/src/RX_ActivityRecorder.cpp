#include <qv/rtlapi/RX_ActivityRecorder.hpp>

#include <qv/pmx/errors.h>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>

RX_ActivityRecorder::RX_ActivityRecorder()
    : _quiet(*this)
{
}

RX_ActivityRecorder::~RX_ActivityRecorder() noexcept(false) = default;

si_uint32_t RX_ActivityRecorder::getBacklog() const
{
    const RX_Locked_ locked(*this);
    return _backlog;
}

void RX_ActivityRecorder::waitForQuiet() const
{
    const RX_Locked_ locked(*this);
    while (_backlog != 0) {
        _quiet.wait();
    }
}

void RX_ActivityRecorder::inc()
{
    const RX_Locked_ locked(*this);
    ++_backlog;
}

void RX_ActivityRecorder::dec()
{
    const RX_Locked_ locked(*this);
    if (_backlog == 0) {
        throw RX_ExFatal(__LINE__, "qv/rtlapi/src/RX_ActivityRecorder", QV_RX_CONDITION, "_backlog > 0");
    }
    if (--_backlog == 0) {
        _quiet.broadcast();
    }
}

void RX_ActivityRecorder::connect(RX_ServerQueue*)
{
}

void RX_ActivityRecorder::disconnect(RX_ServerQueue*)
{
}
