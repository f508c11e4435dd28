#ifndef QV_RTLAPI_RX_VECTOR_U_HPP
#define QV_RTLAPI_RX_VECTOR_U_HPP

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include <qv/rtlapi/RX_CollectionErrors_.hpp>

/**
 * A growing array with bounds checks. Elements are added and removed at its end.
 *
 * Thread safety: any number of threads may read concurrently; modification requires exclusive access.
 */
template <typename T>
class RX_Vector_U
{
    static_assert(!std::is_same_v<T, bool>, "elements are returned by reference: use qv_bool_t");

public:
    /** Constructs an empty vector, with memory reserved for `expected` elements. */
    explicit RX_Vector_U(std::size_t expected = 0)
    {
        _elems.reserve(expected);
    }

    /** Appends an element, in amortised constant time. */
    void addhi(const T& elem)
    {
        _elems.push_back(elem);
    }

    /** Removes the last element and returns it. Throws RX_ExError 51488 if the vector is empty. */
    T remhi()
    {
        if (_elems.empty()) {
            RX_raiseNoElement_();
        }
        T elem = std::move(_elems.back());
        _elems.pop_back();
        return elem;
    }

    /** Erases the last `count` elements. Throws RX_ExError 51488 if there are fewer, and then erases none. */
    void erasehi(std::size_t count = 1)
    {
        if (count > _elems.size()) {
            RX_raiseNoElement_();
        }
        _elems.erase(_elems.end() - static_cast<std::ptrdiff_t>(count), _elems.end());
    }

    /** Returns the number of elements. */
    std::size_t size() const
    {
        return _elems.size();
    }

    /** Returns the element at `index`. Throws RX_ExError 51458 unless `index` is below size(). */
    T& operator[](std::size_t index)
    {
        check(index);
        return _elems[index];
    }

    /** Returns the element at `index`. Throws RX_ExError 51458 unless `index` is below size(). */
    const T& operator[](std::size_t index) const
    {
        check(index);
        return _elems[index];
    }

private:
    void check(std::size_t index) const
    {
        if (index >= _elems.size()) {
            RX_raiseIndexRange_(index, _elems.size());
        }
    }

    std::vector<T> _elems;
};

#endif
