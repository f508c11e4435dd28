#include <dalnim/dalbase.hpp>

#include <dalnim/sys/InitLock.hpp>

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

#include <pthread.h>

namespace com::kor::dal::nim::sys {

/** Recursive. Constant-initialised, since one-time work may run before any constructor. */
internal::ForkSafeMutex internal::initMutex(true);

namespace {

/** Registers the fork handlers of the lock when the library is loaded. */
const struct ForkRegistration
{
    ForkRegistration() noexcept
    {
        pthread_atfork([] { internal::initMutex.prepare(); }, [] { internal::initMutex.afterForkInParent(); },
                       [] { internal::initMutex.afterForkInChild(); });
    }
} fork_registration;

}

// With false it acquires nothing; the analysis assumes true, which all callers in the library pass.
DALNIM_NO_LOCK_ANALYSIS InitLock::InitLock(bool lock) noexcept : owned(false)
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
        internal::initMutex.lock();
        owned = true;
    }
}

void InitLock::release() noexcept
{
    if (owned) {
        internal::initMutex.unlock();
        owned = false;
    }
}

}
