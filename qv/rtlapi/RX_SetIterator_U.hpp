#ifndef QV_RTLAPI_RX_SETITERATOR_U_HPP
#define QV_RTLAPI_RX_SETITERATOR_U_HPP

#include <memory>

#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_CollectionErrors_.hpp>
#include <qv/rtlapi/RX_Set_U.hpp>

/**
 * Walks the elements of a set, each once. The set must outlive the iterator and stay as it is: after a
 * change that is not the iterator's own, everything here raises RX_ExError with code 51532.
 */
template <typename T>
class RX_SetIterator_U
{
public:
    /** Stands before the first element. */
    explicit RX_SetIterator_U(const RX_Set_U<T>& set) : _cursor(set.newCursor()) {}

    /** Goes to the next element; 0 when there is none. */
    qv_bool_t next()
    {
        checkUnchanged();
        _current = _cursor->next();
        _ended = _current == nullptr;
        return !_ended;
    }

    /** Goes to the next element and copies it to `elem`; 0, and `elem` as it was, when there is none. */
    qv_bool_t next(T& elem)
    {
        const qv_bool_t found = next();
        if (found) {
            elem = *_current;
        }
        return found;
    }

    /**
     * The current element. RX_ExError with code 51512 at the end, with code 51488 where there is none:
     * before the first `next()`, and after its removal.
     */
    const T& current() const
    {
        checkUnchanged();
        if (_ended) {
            RX_raiseIteratorEnd_();
        }
        if (_current == nullptr) {
            RX_raiseNoElement_();
        }
        return *_current;
    }

protected:
    /** Takes note that the current element was removed. */
    void forgetCurrent()
    {
        _cursor->refresh();
        _current = nullptr;
    }

private:
    void checkUnchanged() const
    {
        if (_cursor->isOutdated()) {
            RX_raiseSetChanged_();
        }
    }

    std::unique_ptr<RX_SetCursor_U<T>> _cursor;
    const T* _current = nullptr;
    bool _ended = false;
};

#endif
