#ifndef QV_RTLAPI_RX_MONITOR_HPP
#define QV_RTLAPI_RX_MONITOR_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Lockable.hpp>

/** A lockable that waits on conditions of its own mutex. It goes by `detach` alone. */
class DALNIM_API RX_Monitor : public RX_Lockable
{
protected:
    RX_Monitor() = default;
    ~RX_Monitor() noexcept(false) override;
};

#endif
