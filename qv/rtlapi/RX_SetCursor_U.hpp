#ifndef QV_RTLAPI_RX_SETCURSOR_U_HPP
#define QV_RTLAPI_RX_SETCURSOR_U_HPP

/** A position in a set, implemented by each kind of set for RX_SetIterator_U. */
template <typename T>
class RX_SetCursor_U
{
public:
    virtual ~RX_SetCursor_U() = default;

    /** Returns the next element, initially the first one, or null at the end. */
    virtual const T* next() = 0;

    /** Returns true if the set was modified after the cursor was created or refreshed. */
    virtual bool isOutdated() const = 0;

    /** Accepts a modification: only the removal of the element that `next()` returned last. */
    virtual void refresh() = 0;
};

#endif
