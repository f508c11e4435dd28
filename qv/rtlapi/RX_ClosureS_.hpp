#ifndef QV_RTLAPI_RX_CLOSURES_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSURES_PRIVATE_HPP

#include <utility>

#include <qv/rtlapi/RX_ClosureSync_.hpp>

/** Calls a function or a function object without arguments; synchronous (see RX_ClosureSync_). */
template <class F>
class RX_ClosureS_ : public RX_ClosureSync_
{
public:
    /** Creates a closure that calls a copy of `function`. */
    explicit RX_ClosureS_(F function) : _function(std::move(function)) {}

private:
    void call_() override
    {
        _function();
    }

    F _function;
};

#endif
