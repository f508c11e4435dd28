#ifndef QV_RTLAPI_RX_SETITERATOR_U_HPP
#define QV_RTLAPI_RX_SETITERATOR_U_HPP

#include <memory>

#include <qv/pmx/types.h>
#include <qv/rtlapi/RX_CollectionErrors_.hpp>
#include <qv/rtlapi/RX_Set_U.hpp>

/**
 * Iterates over the elements of a set, each once. The set must outlive the iterator. After a modification of
 * the set that was not made through the iterator, all operations throw RX_ExError 51532.
 */
template <typename T>
class RX_SetIterator_U
{
public:
    /** Constructs an iterator before the first element. */
    explicit RX_SetIterator_U(const RX_Set_U<T>& set) : _cursor(set.newCursor()) {}

    /** Advances to the next element. Returns 0 at the end. */
    qv_bool_t next()
    {
        checkUnchanged();
        _current = _cursor->next();
        _ended = _current == nullptr;
        return !_ended;
    }

    /** Advances to the next element and copies it to `elem`. At the end, only returns 0. */
    qv_bool_t next(T& elem)
    {
        const qv_bool_t found = next();
        if (found) {
            elem = *_current;
        }
        return found;
    }

    /**
     * Returns the current element.
     *
     * @throws RX_ExError  51512 at the end; 51488 if there is no current element: before the first `next()`,
     * and after its removal
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
    /** Resets the current element after it was removed. */
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
