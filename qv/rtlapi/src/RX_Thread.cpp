#include <qv/rtlapi/RX_Thread.hpp>

#include <cerrno>

#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/src/detached.hpp>

RX_Thread::RX_Thread(const RX_Closure* closure) : _closure(const_cast<RX_Closure*>(closure)) {}

RX_Thread::~RX_Thread() noexcept(false)
{
    if (_closure != nullptr && !_started) {
        _closure->detach();
    }
}

void RX_Thread::start()
{
    if (_closure == nullptr || _started) {
        throw RX_ExFatal(EINVAL);
    }
    qv::Reference<RX_Thread> self = qv::share(this);
    _started = 1;
    if (const int status = qv::startDetached(&RX_Thread::runThread, this)) {
        _started = 0;
        throw RX_ExFatal(status);
    }
    // Owned by the thread.
    static_cast<void>(self.release());
}

void RX_Thread::run()
{
    const qv::Reference<RX_Closure> closure(_closure);
    qv::applyDetached(*closure);
}

void* RX_Thread::runThread(void* thread)
{
    const qv::Reference<RX_Thread> self(static_cast<RX_Thread*>(thread));
    self->run();
    return nullptr;
}
