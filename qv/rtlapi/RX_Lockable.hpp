#ifndef QV_RTLAPI_RX_LOCKABLE_HPP
#define QV_RTLAPI_RX_LOCKABLE_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Mutex.hpp>
#include <qv/rtlapi/RX_RefCounted_PRIVATE_.hpp>

/** A reference-counted object that is also a mutex, which an RX_Locked_ can lock. */
class DALNIM_API RX_Lockable : public virtual RX_RefCounted_PRIVATE_, public virtual RX_Mutex
{
public:
    RX_Lockable() = default;
    ~RX_Lockable() noexcept(false) override;
};

#endif
