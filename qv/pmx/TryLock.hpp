#ifndef QV_PMX_TRYLOCK_HPP
#define QV_PMX_TRYLOCK_HPP

#include <atomic>

#include <qv/pmx/thread_safety.h>

namespace qv {

/**
 * A lock that no thread waits for: a thread that finds it held does without what it guards.
 *
 * Thread safety: any thread may call any operation.
 */
class DALNIM_CAPABILITY("lock") TryLock
{
public:
    /** Acquires the lock, or returns false if it is held. */
    bool tryLock() noexcept DALNIM_TRY_ACQUIRE(true)
    {
        return !_isHeld.exchange(true, std::memory_order_acquire);
    }
    /** Releases the lock. */
    void unlock() noexcept DALNIM_RELEASE()
    {
        _isHeld.store(false, std::memory_order_release);
    }

private:
    /** unlock() releases what the lock guards to the next tryLock() that succeeds, which acquires it. */
    std::atomic<bool> _isHeld{false};
};

}

#endif
