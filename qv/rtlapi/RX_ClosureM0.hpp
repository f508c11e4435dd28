#ifndef QV_RTLAPI_RX_CLOSUREM0_HPP
#define QV_RTLAPI_RX_CLOSUREM0_HPP

#include <qv/rtlapi/RX_ClosureM_.hpp>

/** Calls a member function without arguments on an object of `T`. Its exceptions propagate. */
template <class T>
class RX_ClosureM0 : public RX_ClosureM_<T, void (T::*)()>
{
public:
    /** Creates a closure that calls `member` on `object`, which must outlive the call. */
    RX_ClosureM0(T* object, void (T::*member)()) : RX_ClosureM_<T, void (T::*)()>(object, member) {}
};

#endif
