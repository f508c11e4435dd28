#ifndef QV_RTLAPI_RX_SETMODIFIER_U_HPP
#define QV_RTLAPI_RX_SETMODIFIER_U_HPP

#include <qv/rtlapi/RX_SetIterator_U.hpp>

/** Iterates over the elements of a set and can remove them. */
template <typename T>
class RX_SetModifier_U : public RX_SetIterator_U<T>
{
public:
    /** Constructs an iterator before the first element. */
    explicit RX_SetModifier_U(RX_Set_U<T>& set) : RX_SetIterator_U<T>(set), _set(set) {}

    /** Removes the current element; `next()` continues after it. Throws as `current()` does. */
    void remove()
    {
        _set.remove(this->current());
        this->forgetCurrent();
    }

private:
    RX_Set_U<T>& _set;
};

#endif
