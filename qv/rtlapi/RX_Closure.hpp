#ifndef QV_RTLAPI_RX_CLOSURE_HPP
#define QV_RTLAPI_RX_CLOSURE_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Lockable.hpp>
#include <qv/rtlapi/RX_String.hpp>

/** Something to call without arguments, for a thread or a queue to run. It goes by `detach`. */
class DALNIM_API RX_Closure : public RX_Lockable
{
public:
    RX_Closure() = default;
    ~RX_Closure() noexcept(false) override;

    /** Makes the call. Nothing of the closure is locked meanwhile. */
    virtual void apply() = 0;

    /** A label for messages: the name of the closure's type, behind `prefix` and a blank if there is one. */
    RX_String asString(const RX_String& prefix) const;
};

#endif
