#ifndef QV_RTLAPI_RX_CLOSURE_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSURE_PRIVATE_HPP

#include <utility>

#include <qv/rtlapi/RX_Closure.hpp>

/** Calls a function or a function object without arguments. Its exceptions propagate. */
template <class F>
class RX_Closure_ : public RX_Closure
{
public:
    /** Creates a closure that calls a copy of `function`. */
    explicit RX_Closure_(F function) : _function(std::move(function)) {}

    void apply() override
    {
        _function();
    }

private:
    F _function;
};

#endif
