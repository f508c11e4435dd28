#ifndef QV_RTLAPI_RX_SET_U_HPP
#define QV_RTLAPI_RX_SET_U_HPP

#include <cstddef>
#include <memory>

#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_SetCursor_U.hpp>

/**
 * A set of unique elements.
 *
 * Thread safety: any number of threads may read concurrently; modification requires exclusive access.
 */
template <typename T>
class RX_Set_U
{
public:
    RX_Set_U() = default;
    RX_Set_U(const RX_Set_U&) = delete;
    RX_Set_U& operator=(const RX_Set_U&) = delete;

    /** Copies the element that equals `key` to `elem`. Returns 0 if there is none, otherwise 1. */
    virtual qv_bool_t get(const T& key, T& elem) const = 0;

    /** Returns 1 if an element equals `elem`, otherwise 0. */
    virtual qv_bool_t contains(const T& elem) const = 0;

    /** Adds `elem`. Returns 0 if the set already contains an equal element, which is kept, otherwise 1. */
    virtual qv_bool_t add(const T& elem) = 0;

    /** Removes the element that equals `elem`. Returns 0 if there is none, otherwise 1. */
    virtual qv_bool_t remove(const T& elem) = 0;

    /** Removes all elements. */
    virtual void removeAll() = 0;

    /** Returns the number of elements. */
    virtual std::size_t size() const = 0;

    /** Returns a cursor before the first element, for RX_SetIterator_U and RX_SetModifier_U. */
    virtual std::unique_ptr<RX_SetCursor_U<T>> newCursor() const = 0;

    /** Returns 1 if the set is empty, otherwise 0. */
    virtual qv_bool_t isEmpty() const = 0;

    virtual ~RX_Set_U() = default;
};

#endif
