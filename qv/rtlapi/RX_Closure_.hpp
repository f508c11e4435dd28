#ifndef QV_RTLAPI_RX_CLOSURE_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSURE_PRIVATE_HPP

#include <utility>

#include <qv/rtlapi/RX_Closure.hpp>

/** Calls a function, or whatever else is called without arguments. Its exceptions pass. */
template <class F>
class RX_Closure_ : public RX_Closure
{
public:
    /** A closure that calls a copy of `function`. */
    explicit RX_Closure_(F function) : _function(std::move(function)) {}

    void apply() override
    {
        _function();
    }

private:
    F _function;
};

#endif
