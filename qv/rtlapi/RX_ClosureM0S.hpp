#ifndef QV_RTLAPI_RX_CLOSUREM0S_HPP
#define QV_RTLAPI_RX_CLOSUREM0S_HPP

#include <qv/rtlapi/RX_ClosureMS_.hpp>

/** Calls a member function without arguments on an object of `T`; synchronous (see RX_ClosureSync_). */
template <class T>
class RX_ClosureM0S : public RX_ClosureMS_<T, void (T::*)()>
{
public:
    /** Creates a closure that calls `member` on `object`, which must outlive the call. */
    RX_ClosureM0S(T* object, void (T::*member)()) : RX_ClosureMS_<T, void (T::*)()>(object, member) {}
};

#endif
