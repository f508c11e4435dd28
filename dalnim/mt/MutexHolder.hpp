#ifndef DALNIM_MT_MUTEXHOLDER_HPP
#define DALNIM_MT_MUTEXHOLDER_HPP

#include <new>

namespace com::kor::dal::nim::mt {

/**
 * The scoped owner of a lock that is already acquired: `MutexHolder<T> holder(lock.acquire())`.
 * It never acquires anything: `MutexHolder<T> holder(lock)` compiles and locks nothing. To lock for a scope,
 * use `std::lock_guard guard(lock)`. Copy and assignment hand the lock over and empty their source. A
 * holder assigned to itself releases its lock and is empty. A holder belongs to one thread at a time.
 *
 * What releases, save the destructor, lets the failure of the lock's release() through and then
 * holds what it held.
 */
template <class T>
class MutexHolder
{
public:
    MutexHolder() noexcept : muxref(nullptr) {}
    /** Takes over `mux`, which the caller has acquired. */
    MutexHolder(const T& mux) noexcept : muxref(&mux) {}
    /** Takes over the lock of `other`, which is empty then. */
    MutexHolder(MutexHolder& other) noexcept : muxref(other.muxref)
    {
        other.muxref = nullptr;
    }
    /** The same. */
    MutexHolder(MutexHolder&& other) noexcept : MutexHolder(other) {}
    ~MutexHolder()
    {
        if (muxref != nullptr) {
            muxref->release(std::nothrow);
        }
    }

    /** Takes over the lock of `other`; a holder that is assigned to itself lets go, and ends up empty. */
    MutexHolder& operator=(MutexHolder& other) // NOLINT(bugprone-unhandled-self-assignment,cert-oop54-cpp)
    {
        if (muxref != nullptr) {
            muxref->release();
        }
        muxref = other.muxref;
        other.muxref = nullptr;
        return *this;
    }
    /** The same. */
    MutexHolder& operator=(MutexHolder&& other)
    {
        return *this = other;
    }
    /** Releases what it holds, and takes over `mux`, which the caller has acquired. */
    MutexHolder& operator=(const T& mux)
    {
        reset(mux, true);
        return *this;
    }

    /**
     * Becomes empty and gives back the lock that it held, null for none. With `release_lock` false
     * the lock stays locked and belongs to the caller.
     */
    const T* release(bool release_lock = true)
    {
        const T* const held = muxref;
        if (held != nullptr && release_lock) {
            held->release();
        }
        muxref = nullptr;
        return held;
    }

    /** Gives back the lock that it held, unlocked unless `release_lock` is false; takes over `mux`. */
    const T* reset(const T& mux, bool release_lock = true)
    {
        const T* const held = release(release_lock);
        muxref = &mux;
        return held;
    }

private:
    const T* muxref;
};

}

#endif
