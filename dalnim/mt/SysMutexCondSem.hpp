#ifndef DALNIM_MT_SYSMUTEXCONDSEM_HPP
#define DALNIM_MT_SYSMUTEXCONDSEM_HPP

#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/SysMutex.hpp>

namespace com::kor::dal::nim::mt {

/** A mutex together with a condition that uses it. */
struct DALNIM_API SysMutexCondSem
{
    SysMutexCondSem();
    ~SysMutexCondSem();

    /** The mutex; may be locked directly or through `sig`. */
    SysMutex sync;
    /** The condition, which uses `sync`. */
    CondSem sig;
};

}

#endif
