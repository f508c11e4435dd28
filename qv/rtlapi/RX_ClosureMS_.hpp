#ifndef QV_RTLAPI_RX_CLOSUREMS_PRIVATE_HPP
#define QV_RTLAPI_RX_CLOSUREMS_PRIVATE_HPP

#include <qv/rtlapi/RX_ClosureSync_.hpp>

/** Calls a member function `F` on an object, which must outlive the call; synchronous (see RX_ClosureSync_).
 */
template <class T, class F>
class RX_ClosureMS_ : public RX_ClosureSync_
{
public:
    /** Creates a closure that calls `member` on `object`. */
    RX_ClosureMS_(T* object, F member) : _object(object), _member(member) {}

private:
    void call_() override
    {
        (_object->*_member)();
    }

    T* _object;
    F _member;
};

#endif
