#ifndef QV_RTLAPI_RX_ELEMWRAP_HPP
#define QV_RTLAPI_RX_ELEMWRAP_HPP

#include <cstddef>

#include <qv/rtlapi/RX_hash.hpp>

/** An element of a hash table that is its own key: found by `RX_hash` and `RX_keyEq` of its type. */
template <typename T>
class RX_ElemWrap
{
public:
    /** Holds a copy of the element. */
    explicit RX_ElemWrap(const T& value) : _value(value) {}

    /** The element. */
    const T& value() const
    {
        return _value;
    }

    /** Its hash, by `RX_hash`. */
    std::size_t hash() const
    {
        return RX_hash(_value);
    }

    /** Whether the elements are the same, by `RX_keyEq`. */
    bool operator==(const RX_ElemWrap& other) const
    {
        return RX_keyEq(_value, other._value);
    }

private:
    T _value;
};

#endif
