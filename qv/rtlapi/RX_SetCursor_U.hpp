#ifndef QV_RTLAPI_RX_SETCURSOR_U_HPP
#define QV_RTLAPI_RX_SETCURSOR_U_HPP

/** What a kind of set gives its iterators: a way along its elements. */
template <typename T>
class RX_SetCursor_U
{
public:
    virtual ~RX_SetCursor_U() = default;

    /** The next element, at first the first one; null at the end, and from then on. */
    virtual const T* next() = 0;

    /** Whether the set was changed since the cursor was made or refreshed. */
    virtual bool isOutdated() const = 0;

    /** Accepts a change: the removal of the element that `next()` gave last, and no other. */
    virtual void refresh() = 0;
};

#endif
