#ifndef QV_RTLAPI_RX_MONITOR_HPP
#define QV_RTLAPI_RX_MONITOR_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Lockable.hpp>

/** An RX_Lockable with conditions that are bound to its own mutex. Destroyed only by `detach`. */
class DALNIM_API RX_Monitor : public RX_Lockable
{
protected:
    RX_Monitor() = default;
    ~RX_Monitor() noexcept(false) override;
};

#endif
