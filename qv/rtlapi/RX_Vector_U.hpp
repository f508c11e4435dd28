#ifndef QV_RTLAPI_RX_VECTOR_U_HPP
#define QV_RTLAPI_RX_VECTOR_U_HPP

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include <qv/rtlapi/RX_CollectionErrors_.hpp>

/**
 * An array that grows and shrinks at its high end, with every index checked.
 *
 * Any number of threads may read at once; a thread that writes needs the vector for itself.
 */
template <typename T>
class RX_Vector_U
{
    static_assert(!std::is_same_v<T, bool>, "elements are handed out by reference: use qv_bool_t");

public:
    /** An empty vector with room for `expected` elements. */
    explicit RX_Vector_U(std::size_t expected = 0)
    {
        _elems.reserve(expected);
    }

    /** Adds an element behind the last one, in constant time on average. */
    void addhi(const T& elem)
    {
        _elems.push_back(elem);
    }

    /** Takes the last element out. An empty vector raises RX_ExError with code 51488. */
    T remhi()
    {
        if (_elems.empty()) {
            RX_raiseNoElement_();
        }
        T elem = std::move(_elems.back());
        _elems.pop_back();
        return elem;
    }

    /** Drops the last `count` elements. If there are fewer, RX_ExError with code 51488, and all stay. */
    void erasehi(std::size_t count = 1)
    {
        if (count > _elems.size()) {
            RX_raiseNoElement_();
        }
        _elems.erase(_elems.end() - static_cast<std::ptrdiff_t>(count), _elems.end());
    }

    /** The number of elements. */
    std::size_t size() const
    {
        return _elems.size();
    }

    /** An index at or beyond `size()` raises RX_ExError with code 51458. */
    T& operator[](std::size_t index)
    {
        check(index);
        return _elems[index];
    }

    /** The same for reading. */
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
