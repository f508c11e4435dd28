#ifndef QV_RTLAPI_RX_CLOSURE0S_HPP
#define QV_RTLAPI_RX_CLOSURE0S_HPP

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_ClosureS_.hpp>

/** Calls a function without arguments; synchronous (see RX_ClosureSync_). */
class DALNIM_API RX_Closure0S : public RX_ClosureS_<void (*)()>
{
public:
    /** Creates a closure that calls `function`. */
    explicit RX_Closure0S(void (*function)());
    ~RX_Closure0S() noexcept(false) override;
};

#endif
