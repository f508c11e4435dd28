#include <dalnim/dalbase.hpp>

#include <dalnim/mt/SysMutex.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

using sys::internal::translateRXErrors;

// The analysis does not know that a lambda acquires or releases the lock for the function that contains it.

SysMutex::SysMutex() : _mu(nullptr)
{
    translateRXErrors("SysMutex()", CLASS_NAME, NAMESPACE_NAME, __LINE__, [this] { _mu = new RX_Mutex; });
}

SysMutex::~SysMutex()
{
    delete _mu;
}

const MutexOps& SysMutex::acquire() const
{
    translateRXErrors("acquire()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this]() DALNIM_NO_LOCK_ANALYSIS { _mu->lock(); });
    return *this;
}

void SysMutex::release() const
{
    translateRXErrors("release()", CLASS_NAME, NAMESPACE_NAME, __LINE__,
                      [this]() DALNIM_NO_LOCK_ANALYSIS { _mu->unlock(); });
}

bool SysMutex::release(const std::nothrow_t&) const noexcept
{
    try {
        _mu->unlock();
        return true;
    } catch (const RX_Exception&) {
        return false;
    }
}

bool SysMutex::request() const
{
    try {
        return _mu->tryLock() == 1;
    } catch (const RX_Exception&) {
        return false;
    }
}

void* SysMutex::os_mux() const
{
    return _mu;
}

}
