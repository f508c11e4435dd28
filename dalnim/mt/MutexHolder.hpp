#ifndef DALNIM_MT_MUTEXHOLDER_HPP
#define DALNIM_MT_MUTEXHOLDER_HPP

#include <qv/pmx/thread_safety.h>

#include <new>

namespace com::kor::dal::nim::mt {

/**
 * Scoped owner of a lock that is already held: `MutexHolder<T> holder(lock.acquire())`. It never acquires a
 * lock itself: `MutexHolder<T> holder(lock)` compiles and locks nothing. To lock for a scope, use
 * `std::lock_guard guard(lock)`.
 *
 * Copying and assigning transfer the lock and leave the source empty. A holder that is assigned to itself
 * releases its lock and becomes empty.
 *
 * Exceptions: if releasing the lock fails, every operation except the destructor throws, and the holder still
 * owns the lock.
 *
 * Thread safety: a holder may be used by one thread at a time.
 */
template <class T>
class DALNIM_SCOPED_CAPABILITY MutexHolder
{
public:
    // The attribute lets the analysis know of a holder without a lock.
    DALNIM_NO_LOCK_ANALYSIS MutexHolder() noexcept : muxref(nullptr) {}
    /** Owns `mux`, which the caller must hold. */
    MutexHolder(const T& mux) noexcept DALNIM_REQUIRES_SHARED(mux) : muxref(&mux) {}
    /** @name Transfer */
    /** @{ */
    /** Takes the lock of `other`, which becomes empty. */
    MutexHolder(MutexHolder& other) noexcept : muxref(other.muxref)
    {
        other.muxref = nullptr;
    }
    MutexHolder(MutexHolder&& other) noexcept : MutexHolder(other) {}
    /** @} */
    /** Releases the lock, if any. Ignores a failure. */
    ~MutexHolder() DALNIM_RELEASE()
    {
        if (muxref != nullptr) {
            muxref->release(std::nothrow);
        }
    }

    /** @name Transfer by assignment */
    /** @{ */
    /** Releases the lock that it owns, if any, then takes the lock of `other`, which becomes empty. */
    MutexHolder& operator=(MutexHolder& other) // NOLINT(bugprone-unhandled-self-assignment,cert-oop54-cpp)
    {
        if (muxref != nullptr) {
            muxref->release();
        }
        muxref = other.muxref;
        other.muxref = nullptr;
        return *this;
    }
    MutexHolder& operator=(MutexHolder&& other)
    {
        return *this = other;
    }
    /** @} */
    /** Releases the lock that it owns, if any, then owns `mux`, which the caller must hold. */
    MutexHolder& operator=(const T& mux)
    {
        reset(mux, true);
        return *this;
    }

    /**
     * Gives up the lock and becomes empty.
     * @param release_lock  whether to release the lock; otherwise it stays locked and is the caller's
     * @return the lock that it owned, or null
     */
    const T* release(bool release_lock = true) DALNIM_RELEASE()
    {
        const T* const held = muxref;
        if (held != nullptr && release_lock) {
            held->release();
        }
        muxref = nullptr;
        return held;
    }

    /**
     * Gives up the lock as release() does, then owns `mux`, which the caller must hold.
     * @return the lock that it owned before, or null
     */
    // The analysis supposes that it continues to own the lock of its constructor, as in the library.
    DALNIM_NO_LOCK_ANALYSIS const T* reset(const T& mux, bool release_lock = true)
    {
        const T* const held = release(release_lock);
        muxref = &mux;
        return held;
    }

private:
    /** The lock to release, or null. */
    const T* muxref;
};

}

#endif
