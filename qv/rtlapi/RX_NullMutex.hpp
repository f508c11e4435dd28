#ifndef QV_RTLAPI_RX_NULLMUTEX_HPP
#define QV_RTLAPI_RX_NULLMUTEX_HPP

#include <qv/pmx/types.h>

/** A mutex that does nothing, for templates that require one. */
class RX_NullMutex
{
public:
    /** @name Locking */
    /** @{ */
    /** Does nothing. */
    void lock() const noexcept {}
    void unlock() const noexcept {}
    /** @} */
    /** Returns 1. */
    qv_bool_t tryLock() const noexcept
    {
        return 1;
    }
};

#endif
