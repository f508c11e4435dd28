#include <dalnim/dalbase.hpp>

#include <dalnim/mt/SysMutex.hpp>

#include <dalnim/mt/nsdefs.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/internal/RXErrors.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::mt {

namespace {

/**
 * Runs an operation of the runtime's mutex. The track is made with the failure: an unlock must not
 * fail because a track got no memory.
 */
template <class Operation>
void translated(const char* scope, unsigned int line, Operation&& operation)
{
    try {
        operation();
    } catch (const RX_Exception& exc) {
        const sys::StackTrack track(scope, SysMutex::CLASS_NAME, NAMESPACE_NAME, line);
        sys::internal::throwTranslated(exc);
    }
}

}

SysMutex::SysMutex() : _mu(nullptr)
{
    translated("SysMutex()", __LINE__, [this] { _mu = new RX_Mutex; });
}

SysMutex::~SysMutex()
{
    delete _mu;
}

const MutexOps& SysMutex::acquire() const
{
    translated("acquire()", __LINE__, [this] { _mu->lock(); });
    return *this;
}

void SysMutex::release() const
{
    translated("release()", __LINE__, [this] { _mu->unlock(); });
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
