#ifndef QV_RTLAPI_RX_NULLMUTEX_HPP
#define QV_RTLAPI_RX_NULLMUTEX_HPP

#include <qv/pmx/types.h>

/** Stands where a template wants a lock and none is needed. */
class RX_NullMutex
{
public:
    /** @name Nothing to hold */
    /** @{ */
    /** Does nothing. */
    void lock() const noexcept {}
    void unlock() const noexcept {}
    /** @} */
    /** Always 1. */
    qv_bool_t tryLock() const noexcept
    {
        return 1;
    }
};

#endif
