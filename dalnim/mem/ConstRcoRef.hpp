#ifndef DALNIM_MEM_CONSTRCOREF_HPP
#define DALNIM_MEM_CONSTRCOREF_HPP

#include <dalnim/mem/MemOps.hpp>
#include <dalnim/mem/RefCntObject.hpp>

#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

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
    /** What it refers to. */
    typedef T element_type;

    ConstRcoRef() noexcept : rco(nullptr) {}
    /** A new reference to an object; null makes it empty. */
    ConstRcoRef(const T* rco_inst) : rco(acquired(rco_inst)) {}
    /** A new reference to what `ref` holds. */
    ConstRcoRef(const ConstRcoRef& ref) : rco(acquired(ref.rco)) {}
    /** Takes over what `ref` holds; no count moves. */
    ConstRcoRef(ConstRcoRef&& ref) noexcept : rco(ref.rco)
    {
        ref.rco = nullptr;
    }
    ~ConstRcoRef()
    {
        clear();
    }

    /** Holds what `ref` holds. When the release of the old object throws, the reference is as it was. */
    // What is the same already stays: updatePtr asks.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
    ConstRcoRef& operator=(const ConstRcoRef& ref)
    {
        updatePtr(ref.rco);
        return *this;
    }
    /**
     * Takes over what `ref` holds and leaves it empty. If the release of the old object throws, both
     * references are as they were.
     */
    ConstRcoRef& operator=(ConstRcoRef&& ref)
    {
        moveFrom(ref);
        return *this;
    }
    /** Holds an object, or nothing for null; otherwise the same. */
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
    /** Whether it is empty. */
    bool operator!() const noexcept
    {
        return rco == nullptr;
    }

    /** Throws sys::system_error 22, "Attempt to dereference null reference.", when empty. */
    const T* operator->() const
    {
        return checked();
    }
    /** The object. Throws as operator->() when empty. */
    const T& operator*() const
    {
        return *checked();
    }

    // Templates, so that references of related types and plain pointers meet here: left to the
    // conversion to `const void*`, they would compare whether an object is held, not which.
    /** @name Comparison */
    /** @{ */
    /**
     * By the addresses of the objects; an empty reference is equal to null. Any thread may read meanwhile.
     */
    template <class U>
    bool operator==(const ConstRcoRef<U>& ref) const noexcept
    {
        return rco == ref.get();
    }
    template <class U>
    bool operator!=(const ConstRcoRef<U>& ref) const noexcept
    {
        return rco != ref.get();
    }
    template <class U>
    bool operator<(const ConstRcoRef<U>& ref) const noexcept
    {
        return std::less<>()(rco, ref.get());
    }
    template <class U>
    bool operator==(const U* ptr) const noexcept
    {
        return rco == ptr;
    }
    template <class U>
    bool operator!=(const U* ptr) const noexcept
    {
        return rco != ptr;
    }
    template <class U>
    friend bool operator==(const U* ptr, const ConstRcoRef& ref) noexcept
    {
        return ptr == ref.rco;
    }
    template <class U>
    friend bool operator!=(const U* ptr, const ConstRcoRef& ref) noexcept
    {
        return ptr != ref.rco;
    }
    /** @} */

    /** Drops what is held. Never throws: an object whose destructor does ends the process here. */
    void clear() noexcept
    {
        if (rco != nullptr) {
            std::exchange(rco, nullptr)->releaseRef(std::nothrow);
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
     * that hangs off the old one survives. When the old one's release throws, the reference still
     * holds it and the new one is given back; an old one whose destructor threw is gone all the same.
     */
    void updatePtr(const T* other)
    {
        if (other != rco) {
            replace(acquired(other), releaseQuietly);
        }
    }

    /** `object`, may be null, with one count more. */
    static T* acquired(const T* object)
    {
        if (object != nullptr) {
            object->acquireRef();
        }
        return const_cast<T*>(object);
    }

    /** The object; throws as operator->() when empty. */
    T* checked() const
    {
        if (rco == nullptr) {
            throwNullDerefException();
        }
        return rco;
    }

    /** The held object with one count, null when empty. */
    T* rco;

private:
    /**
     * Takes over the pointer of `ref`, which may be part of the object that is released here: `ref` is empty
     * before the release, and not touched after it unless it throws. Then the pointer goes back to `ref`,
     * and whatever the release assigned to `ref` is released. A move to itself changes nothing.
     */
    void moveFrom(ConstRcoRef& ref)
    {
        replace(std::exchange(ref.rco, nullptr),
                [&ref](T* taken) { releaseQuietly(std::exchange(ref.rco, taken)); });
    }

    /**
     * Holds `counted`, of which a reference is already acquired, and releases the object held before. If that
     * throws, the old object stays held, and `undo` takes over what this reference held in the meantime:
     * `counted`, unless the release assigned another object.
     *
     * The pointer changes before the release, and nothing is touched after it: the release may destroy the
     * object that this reference is part of, or run code that assigns to it.
     */
    template <class Undo>
    void replace(T* counted, Undo undo)
    {
        T* const old = std::exchange(rco, counted);
        if (old != nullptr) {
            try {
                old->releaseRef();
            } catch (...) {
                undo(std::exchange(rco, old));
                throw;
            }
        }
    }

    static void releaseQuietly(const T* object) noexcept
    {
        if (object != nullptr) {
            object->releaseRef(std::nothrow);
        }
    }
};

}

#endif
