#ifndef DALNIM_SYS_INITLOCK_HPP
#define DALNIM_SYS_INITLOCK_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::sys {

/**
 * Guard of the one library-wide lock for rare one-time work.
 *
 * The lock is recursive, so that one-time work may run inside another. It must not be held across
 * anything that blocks for long. fork() waits for it behind other locks of the library, so that it is
 * free in the child: who holds it does not fork. An object belongs to one thread; nothing here throws.
 */
class DALNIM_API InitLock
{
public:
    static constexpr const char CLASS_NAME[] = "InitLock";

    /** Acquires at once when `lock` is true. */
    explicit InitLock(bool lock) noexcept;
    /** Releases what this object holds. */
    ~InitLock();

    InitLock(const InitLock&) = delete;
    InitLock& operator=(const InitLock&) = delete;

    /** Blocks until the lock is held; does nothing when this object holds it already. */
    void acquire() noexcept;
    /** Gives the lock back when this object holds it. */
    void release() noexcept;

private:
    bool owned;
};

}

#endif
