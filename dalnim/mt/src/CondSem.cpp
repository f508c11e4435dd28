#include <dalnim/dalbase.hpp>

#include <dalnim/mt/CondSem.hpp>

#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include <cerrno>
#include <memory>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

using sys::internal::translateRXErrors;

namespace {

constexpr unsigned int NO_LIMIT = 0xFFFFFFFF;

}

CondSem::CondSem(const MutexOps& mux) : _own(false), _mop(const_cast<MutexOps*>(&mux)), _cond(nullptr)
{
    const sys::StackTrack track("CondSem()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    createCondition();
}

CondSem::CondSem(MutexOps* mux, bool own) : _own(own), _mop(mux), _cond(nullptr)
{
    const sys::StackTrack track("CondSem()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    std::unique_ptr<SysMutex> made;
    if (_mop == nullptr) {
        if (!own) {
            throw sys::system_error(EINVAL);
        }
        made = std::make_unique<SysMutex>();
        _mop = made.get();
    }
    createCondition();
    static_cast<void>(made.release());
}

CondSem::~CondSem()
{
    delete _cond;
    if (_own) {
        delete _mop;
    }
}

void CondSem::createCondition()
{
    translateRXErrors([this] { _cond = new RX_Condition(static_cast<RX_Mutex*>(_mop->os_mux())); });
}

const CondSem& CondSem::acquire() const
{
    _mop->acquire();
    return *this;
}

void CondSem::release() const
{
    _mop->release();
}

bool CondSem::release(const std::nothrow_t&) const noexcept
{
    return _mop->release(std::nothrow);
}

bool CondSem::request() const
{
    return _mop->request();
}

void CondSem::signal() const
{
    translateRXErrors("signal()", CLASS_NAME, NAMESPACE_NAME, __LINE__, [this] { _cond->signal(); });
}

void CondSem::broadcast() const
{
    translateRXErrors("broadcast()", CLASS_NAME, NAMESPACE_NAME, __LINE__, [this] { _cond->broadcast(); });
}

bool CondSem::wait(unsigned int ms) const
{
    try {
        if (ms == NO_LIMIT) {
            _cond->wait();
            return true;
        }
        const RX_RelTime interval(static_cast<int>(ms / 1000), static_cast<int>(ms % 1000) * 1000000);
        return _cond->timedWait(interval) == 1;
    } catch (const RX_Exception&) {
        return false;
    }
}

}
