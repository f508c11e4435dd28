#ifndef QV_RTLAPI_RX_SET_U_HPP
#define QV_RTLAPI_RX_SET_U_HPP

#include <cstddef>
#include <memory>

#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_SetCursor_U.hpp>

/**
 * A set of elements, each of which is in it once.
 *
 * Any number of threads may read at once; a thread that writes needs the set for itself.
 */
template <typename T>
class RX_Set_U
{
public:
    RX_Set_U() = default;
    RX_Set_U(const RX_Set_U&) = delete;
    RX_Set_U& operator=(const RX_Set_U&) = delete;

    /** 1 if an element equals `key`: then `elem` becomes a copy of it. */
    virtual qv_bool_t get(const T& key, T& elem) const = 0;

    /** 1 if an element equals `elem`, otherwise 0. */
    virtual qv_bool_t contains(const T& elem) const = 0;

    /** 1 if the set changed; 0 if an equal element was there already, which stays. */
    virtual qv_bool_t add(const T& elem) = 0;

    /** 1 if the set changed; 0 if no element equals `elem`. */
    virtual qv_bool_t remove(const T& elem) = 0;

    /** Takes all elements out. */
    virtual void removeAll() = 0;

    /** The number of elements. */
    virtual std::size_t size() const = 0;

    /** A way along the elements; see RX_SetIterator_U and RX_SetModifier_U. */
    virtual std::unique_ptr<RX_SetCursor_U<T>> newCursor() const = 0;

    /** 1 if there is no element, otherwise 0. */
    virtual qv_bool_t isEmpty() const = 0;

    virtual ~RX_Set_U() = default;
};

#endif
