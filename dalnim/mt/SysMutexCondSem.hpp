#ifndef DALNIM_MT_SYSMUTEXCONDSEM_HPP
#define DALNIM_MT_SYSMUTEXCONDSEM_HPP

#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/SysMutex.hpp>

namespace com::kor::dal::nim::mt {

/** A mutex and a condition on it, bound together. */
struct DALNIM_API SysMutexCondSem
{
    SysMutexCondSem();
    ~SysMutexCondSem();

    /** The lock; used directly, or through `sig`. */
    SysMutex sync;
    /** The condition on it. */
    CondSem sig;
};

}

#endif
