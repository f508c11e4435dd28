#include <dalnim/dalbase.hpp>

#include <dalnim/sys/InitLock.hpp>

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

#include <pthread.h>

namespace com::kor::dal::nim::sys {

namespace {

/** Recursive. Constant-initialised, since one-time work may run before any constructor. */
internal::ForkSafeMutex _init_sync(true);

/** Registers the fork handlers of the lock when the library is loaded. */
const struct ForkRegistration
{
    ForkRegistration() noexcept
    {
        pthread_atfork([] { _init_sync.prepare(); }, [] { _init_sync.afterForkInParent(); },
                       [] { _init_sync.afterForkInChild(); });
    }
} fork_registration;

}

InitLock::InitLock(bool lock) noexcept : owned(false)
{
    if (lock) {
        acquire();
    }
}

InitLock::~InitLock()
{
    release();
}

void InitLock::acquire() noexcept
{
    if (!owned) {
        _init_sync.lock();
        owned = true;
    }
}

void InitLock::release() noexcept
{
    if (owned) {
        _init_sync.unlock();
        owned = false;
    }
}

}
