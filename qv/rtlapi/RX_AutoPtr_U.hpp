#ifndef QV_RTLAPI_RX_AUTOPTR_U_HPP
#define QV_RTLAPI_RX_AUTOPTR_U_HPP

#include <qv/pmx/types.h>

/**
 * A pointer that deletes its object, unless a copy took it over: copying and assignment transfer the
 * ownership, and the source goes on pointing to the object without owning it.
 *
 * The object goes by `delete`, so it must not be an array; a pointer to `char` is one character.
 *
 * Thread safety: an object of this class is used by one thread at a time, and copying counts as use
 * of both.
 */
template <class T>
class RX_AutoPtr_U
{
public:
    /** Takes the object over; null owns nothing. */
    explicit RX_AutoPtr_U(T* object = nullptr) noexcept : owner(object != nullptr), pT(object) {}
    /** Takes over the ownership that `other` has. */
    RX_AutoPtr_U(const RX_AutoPtr_U& other) noexcept : owner(other.owner), pT(other.release()) {}
    ~RX_AutoPtr_U()
    {
        if (owner) {
            delete pT;
        }
    }

    /** Deletes what it owns, and takes over the ownership that `other` has. */
    RX_AutoPtr_U& operator=(const RX_AutoPtr_U& other) noexcept
    {
        if (this != &other) {
            // The two may point to one object, which whoever of them owns it must not lose.
            const bool isSame = pT == other.pT;
            if (owner && !isSame) {
                delete pT;
            }
            owner = other.owner || (owner && isSame);
            pT = other.release();
        }
        return *this;
    }

    /** The object, owned or not; null for none. */
    T* get() const noexcept
    {
        return pT;
    }
    /** Gives the ownership to the caller, and goes on pointing to the object. */
    T* release() const noexcept
    {
        owner = 0;
        return pT;
    }
    /** The object, which there must be. */
    T& operator*() const noexcept
    {
        return *pT;
    }
    /** The object, which there must be. */
    T* operator->() const noexcept
    {
        return pT;
    }

private:
    mutable qv_bool_t owner;
    T* pT;
};

#endif
