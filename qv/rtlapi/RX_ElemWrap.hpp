#ifndef QV_RTLAPI_RX_ELEMWRAP_HPP
#define QV_RTLAPI_RX_ELEMWRAP_HPP

#include <cstddef>

#include <qv/rtlapi/RX_hash.hpp>

/** An element of a hash table that is its own key, with the `RX_hash` and `RX_keyEq` of its type. */
template <typename T>
class RX_ElemWrap
{
public:
    /** Copies the element. */
    explicit RX_ElemWrap(const T& value) : _value(value) {}

    /** Returns the element. */
    const T& value() const
    {
        return _value;
    }

    /** Returns its hash, by `RX_hash`. */
    std::size_t hash() const
    {
        return RX_hash(_value);
    }

    /** Compares the elements by `RX_keyEq`. */
    bool operator==(const RX_ElemWrap& other) const
    {
        return RX_keyEq(_value, other._value);
    }

private:
    T _value;
};

#endif
