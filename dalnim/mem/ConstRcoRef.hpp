#ifndef DALNIM_MEM_CONSTRCOREF_HPP
#define DALNIM_MEM_CONSTRCOREF_HPP

#include <dalnim/mem/MemOps.hpp>
#include <dalnim/mem/RefCntObject.hpp>

#include <cstddef>
#include <functional>
#include <type_traits>

namespace com::kor::dal::nim::mem {

/**
 * A smart reference to a const counted object: one pointer wide, holding one count.
 *
 * Any number of threads may hold their own references to one thread-safe object; one reference
 * itself must not be changed by two threads at once. References order as the addresses of their
 * objects and can be map keys.
 */
template <class T>
class ConstRcoRef
{
public:
    typedef T element_type;

    ConstRcoRef() noexcept : rco(nullptr) {}
    ConstRcoRef(std::nullptr_t) noexcept : rco(nullptr) {}
    ConstRcoRef(const T* rco_inst) : rco(nullptr)
    {
        updatePtr(rco_inst);
    }
    ConstRcoRef(const ConstRcoRef& ref) : rco(nullptr)
    {
        updatePtr(ref.rco);
    }
    /** Takes over what `ref` holds; no count moves. */
    ConstRcoRef(ConstRcoRef&& ref) noexcept : rco(ref.rco)
    {
        ref.rco = nullptr;
    }
    ~ConstRcoRef()
    {
        clear();
    }

    ConstRcoRef& operator=(const ConstRcoRef& ref)
    {
        updatePtr(ref.rco);
        return *this;
    }
    ConstRcoRef& operator=(ConstRcoRef&& ref)
    {
        moveFrom(ref);
        return *this;
    }
    ConstRcoRef& operator=(const T* rco_inst)
    {
        updatePtr(rco_inst);
        return *this;
    }

    /** Not null when an object is held; never the object's address. */
    operator const void*() const noexcept
    {
        return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(rco != nullptr ? 1 : 0));
    }
    bool operator!() const noexcept
    {
        return rco == nullptr;
    }

    /** Throws sys::system_error 22, "Attempt to dereference null reference.", when empty. */
    const T* operator->() const
    {
        return checked();
    }
    const T& operator*() const
    {
        return *checked();
    }

    bool operator==(const ConstRcoRef& ref) const noexcept
    {
        return rco == ref.rco;
    }
    bool operator!=(const ConstRcoRef& ref) const noexcept
    {
        return rco != ref.rco;
    }
    bool operator<(const ConstRcoRef& ref) const noexcept
    {
        return std::less<const T*>()(rco, ref.rco);
    }
    bool operator==(std::nullptr_t) const noexcept
    {
        return rco == nullptr;
    }
    bool operator!=(std::nullptr_t) const noexcept
    {
        return rco != nullptr;
    }

    /** Drops what is held. Never throws: a destructor that does ends the process here. */
    void clear() noexcept
    {
        if (rco != nullptr) {
            T* const old = rco;
            rco = nullptr;
            old->releaseRef(std::nothrow);
        }
    }

    /** The held object, null when empty. */
    const T* get() const noexcept
    {
        return rco;
    }

protected:
    /** Holds `other`, which must be a T: throws `std::bad_cast` otherwise and keeps what it had. */
    void assignPtr(const RefCntObject* other)
    {
        const T* converted = nullptr;
        if constexpr (std::is_same_v<std::remove_const_t<T>, RefCntObject>) {
            converted = other;
        } else if (other != nullptr) {
            converted = dynamic_cast<const T*>(other);
            if (converted == nullptr) {
                throwBadCastException();
            }
        }
        updatePtr(converted);
    }

    /**
     * Holds `other` in place of what is held. The new reference is taken first, so that an object
     * that hangs off the old one survives; when the old one's release throws, nothing has changed.
     */
    void updatePtr(const T* other)
    {
        if (other == rco) {
            return;
        }
        if (other != nullptr) {
            other->acquireRef();
        }
        if (rco != nullptr) {
            try {
                rco->releaseRef();
            } catch (...) {
                if (other != nullptr) {
                    other->releaseRef(std::nothrow);
                }
                throw;
            }
        }
        rco = const_cast<T*>(other);
    }

    /**
     * Takes over what `ref` holds, which may itself live in the object that is dropped here. When
     * the old one's release throws, it stays held and the new one is given back.
     */
    void moveFrom(ConstRcoRef& ref)
    {
        if (this == &ref) {
            return;
        }
        T* const old = rco;
        T* const taken = ref.rco;
        ref.rco = nullptr;
        rco = taken;
        if (old != nullptr) {
            try {
                old->releaseRef();
            } catch (...) {
                rco = old;
                if (taken != nullptr) {
                    taken->releaseRef(std::nothrow);
                }
                throw;
            }
        }
    }

    T* checked() const
    {
        if (rco == nullptr) {
            throwNullDerefException();
        }
        return rco;
    }

    T* rco;
};

}

#endif
