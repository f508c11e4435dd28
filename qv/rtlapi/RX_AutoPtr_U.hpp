#ifndef QV_RTLAPI_RX_AUTOPTR_U_HPP
#define QV_RTLAPI_RX_AUTOPTR_U_HPP

#include <qv/pmx/types.h>

/**
 * An owning pointer. Copying and assignment transfer the ownership; the source still points to the object,
 * but does not own it any more.
 *
 * The object is destroyed by `delete`, so it must not be an array; a `char*` points to one character.
 *
 * Thread safety: must not be used by two threads concurrently. Copying uses both objects.
 */
template <class T>
class RX_AutoPtr_U
{
public:
    /** Takes ownership of `object`, which may be null. */
    explicit RX_AutoPtr_U(T* object = nullptr) noexcept : owner(object != nullptr), pT(object) {}
    /** Takes the ownership from `other`, if it has it. */
    RX_AutoPtr_U(const RX_AutoPtr_U& other) noexcept : owner(other.owner), pT(other.release()) {}
    ~RX_AutoPtr_U()
    {
        if (owner) {
            delete pT;
        }
    }

    /** Deletes the object that it owns, and takes the ownership from `other`, if it has it. */
    RX_AutoPtr_U& operator=(const RX_AutoPtr_U& other) noexcept
    {
        if (this != &other) {
            // Both may point to the same object, and either may own it: keep it alive then.
            const bool isSame = pT == other.pT;
            if (owner && !isSame) {
                delete pT;
            }
            owner = other.owner || (owner && isSame);
            pT = other.release();
        }
        return *this;
    }

    /** Returns the object, whether owned or not, or null. */
    T* get() const noexcept
    {
        return pT;
    }
    /** Transfers the ownership to the caller. Still points to the object. */
    T* release() const noexcept
    {
        owner = 0;
        return pT;
    }
    /** Returns the object. The pointer must not be null. */
    T& operator*() const noexcept
    {
        return *pT;
    }
    /** Returns the object. The pointer must not be null. */
    T* operator->() const noexcept
    {
        return pT;
    }

private:
    mutable qv_bool_t owner;
    T* pT;
};

#endif
