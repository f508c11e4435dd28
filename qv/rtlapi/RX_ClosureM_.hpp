#ifndef QV_RTLAPI_RX_CLOSUREM_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSUREM_PRIVATE_HPP

#include <qv/rtlapi/RX_Closure.hpp>

/** Calls a member function `F` on an object, which must outlive the call. Its exceptions propagate. */
template <class T, class F>
class RX_ClosureM_ : public RX_Closure
{
public:
    /** Creates a closure that calls `member` on `object`. */
    RX_ClosureM_(T* object, F member) : _object(object), _member(member) {}

    /** Makes the call. Its exceptions propagate. */
    void apply() override
    {
        (_object->*_member)();
    }

private:
    T* _object;
    F _member;
};

#endif
