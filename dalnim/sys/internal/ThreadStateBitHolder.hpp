#ifndef DALNIM_SYS_INTERNAL_THREADSTATEBITHOLDER_HPP
#define DALNIM_SYS_INTERNAL_THREADSTATEBITHOLDER_HPP

#include <dalnim/sys/internal/ThreadState.hpp>

namespace com::kor::dal::nim::sys::internal {

/**
 * Sets mode bits of the calling thread for a scope, and clears exactly those that it has set. With
 * one flag it is a re-entrancy guard: only the outermost holder sets and clears.
 *
 * It must be destroyed on the thread that built it.
 */
class DALNIM_API ThreadStateBitHolder
{
public:
    static constexpr const char CLASS_NAME[] = "ThreadStateBitHolder";

    /**
     * @param multi true takes each of `flags` that is still free; false takes all of them or, when
     *              even one is set already, none
     */
    ThreadStateBitHolder(ThreadMode_t flags, bool multi);
    ~ThreadStateBitHolder();

    ThreadStateBitHolder(const ThreadStateBitHolder&) = delete;
    ThreadStateBitHolder& operator=(const ThreadStateBitHolder&) = delete;

    /** The bits that this holder has set. */
    ThreadMode_t active() const noexcept
    {
        return bits;
    }

private:
    const ThreadState& ts;
    ThreadMode_t bits;
};

}

#endif
