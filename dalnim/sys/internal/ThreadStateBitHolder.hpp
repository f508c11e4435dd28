#ifndef DALNIM_SYS_INTERNAL_THREADSTATEBITHOLDER_HPP
#define DALNIM_SYS_INTERNAL_THREADSTATEBITHOLDER_HPP

#include <dalnim/sys/internal/ThreadState.hpp>

namespace com::kor::dal::nim::sys::internal {

/**
 * Sets mode bits of the calling thread for a scope. The destructor clears those bits that this object has
 * set. With one flag, this is a guard against re-entrance: only the outermost holder sets and clears it.
 *
 * A holder must be destroyed on the thread that constructed it.
 */
class DALNIM_API ThreadStateBitHolder
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadStateBitHolder";

    /**
     * @param flags  the bits to set
     * @param multi  if true, sets those of `flags` that are clear; if false, sets all of them, or none if any
     *               is already set
     */
    ThreadStateBitHolder(ThreadMode_t flags, bool multi);
    ~ThreadStateBitHolder();

    ThreadStateBitHolder(const ThreadStateBitHolder&) = delete;
    ThreadStateBitHolder& operator=(const ThreadStateBitHolder&) = delete;

    /** Returns the bits that this holder has set. */
    ThreadMode_t active() const noexcept
    {
        return bits;
    }

private:
    /** The state of the thread that constructed this holder. */
    const ThreadState& ts;
    ThreadMode_t bits;
};

}

#endif
