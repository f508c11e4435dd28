#ifndef QV_RTLAPI_RX_CLOSURE_HPP
#define QV_RTLAPI_RX_CLOSURE_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_Lockable.hpp>
#include <qv/rtlapi/RX_String.hpp>

/** A call without arguments, to be run by a thread or a queue. Destroyed by `detach`. */
class DALNIM_API RX_Closure : public RX_Lockable
{
public:
    RX_Closure() = default;
    ~RX_Closure() noexcept(false) override;

    /** Makes the call. The lock of the closure is not held during the call. */
    virtual void apply() = 0;

    /**
     * Returns a label for messages: the name of the type of the closure, preceded by `prefix` and a space
     * unless `prefix` is empty.
     */
    RX_String asString(const RX_String& prefix) const;
};

#endif
