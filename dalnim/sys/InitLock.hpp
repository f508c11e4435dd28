#ifndef DALNIM_SYS_INITLOCK_HPP
#define DALNIM_SYS_INITLOCK_HPP

#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>

namespace com::kor::dal::nim::sys::internal {

class ForkSafeMutex;
/** The lock that InitLock holds, for declarations of what it guards. Not exported. */
extern ForkSafeMutex initMutex;

}

namespace com::kor::dal::nim::sys {

/**
 * Guard of the one library-wide lock for rare one-time work.
 *
 * The lock is recursive, so that one-time work may include other one-time work. It must not be held during
 * calls that block for long. fork() acquires it after other locks of the library, so that it is unlocked in
 * the child; a thread that holds it must not call fork().
 *
 * Thread safety: an object may be used by one thread only; the lock is shared by all.
 */
class DALNIM_SCOPED_CAPABILITY DALNIM_API InitLock
{
public:
    static constexpr const char CLASS_NAME[] = "InitLock";

    /** @param lock  whether to acquire the lock now */
    explicit InitLock(bool lock) noexcept DALNIM_ACQUIRE(internal::initMutex);
    /** Releases the lock if this object holds it. */
    ~InitLock() DALNIM_RELEASE();

    InitLock(const InitLock&) = delete;
    InitLock& operator=(const InitLock&) = delete;

    /** Blocks until the lock is held. Does nothing if this object already holds it. */
    void acquire() noexcept DALNIM_ACQUIRE();
    /** Releases the lock if this object holds it. */
    void release() noexcept DALNIM_RELEASE();

private:
    bool owned;
};

}

#endif
