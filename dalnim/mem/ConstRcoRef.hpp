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
 * A smart pointer that owns one reference to a const reference-counted object, or is empty.
 *
 * References compare by the addresses of their objects and can be map keys.
 *
 * Thread safety: any number of threads may own references to one object that is counted atomically. Changing
 * a reference itself requires exclusive access to it.
 */
template <class T>
class ConstRcoRef
{
public:
    /** The type of the object. */
    typedef T element_type;

    ConstRcoRef() noexcept : rco(nullptr) {}
    /** Acquires a reference to an object. Null makes an empty reference. */
    ConstRcoRef(const T* rco_inst) : rco(acquired(rco_inst)) {}
    /** Acquires a reference to the object of `ref`. */
    ConstRcoRef(const ConstRcoRef& ref) : rco(acquired(ref.rco)) {}
    /** Transfers the reference of `ref`, which is then empty. */
    ConstRcoRef(ConstRcoRef&& ref) noexcept : rco(ref.rco)
    {
        ref.rco = nullptr;
    }
    ~ConstRcoRef()
    {
        clear();
    }

    /** Replaces the object by that of `ref`. If releasing the old object throws, this reference is unchanged.
     */
    // updatePtr() checks for the same object.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment,cert-oop54-cpp)
    ConstRcoRef& operator=(const ConstRcoRef& ref)
    {
        updatePtr(ref.rco);
        return *this;
    }
    /**
     * Transfers the reference of `ref`, which is then empty. If releasing the old object throws, both
     * references are unchanged.
     */
    ConstRcoRef& operator=(ConstRcoRef&& ref)
    {
        moveFrom(ref);
        return *this;
    }
    /** Replaces the object, or clears the reference for null. Throws like copy assignment. */
    ConstRcoRef& operator=(const T* rco_inst)
    {
        updatePtr(rco_inst);
        return *this;
    }

    /** Returns a non-null value, which is never the object's address, unless this is empty. */
    operator const void*() const noexcept
    {
        return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(rco != nullptr ? 1 : 0));
    }
    /** Returns true if this is empty. */
    bool operator!() const noexcept
    {
        return rco == nullptr;
    }

    /** Returns the object. Throws sys::system_error 22 (EINVAL), "Attempt to dereference null reference." */
    const T* operator->() const
    {
        return checked();
    }
    /** Returns the object. Throws like operator->(). */
    const T& operator*() const
    {
        return *checked();
    }

    // Templates, so that references of related types and plain pointers match. Otherwise both sides would be
    // converted to `const void*`, and compare equal whenever neither is empty.
    /** @name Comparison */
    /** @{ */
    /**
     * Compares the addresses of the objects. An empty reference is equal to null.
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

    /** Releases the object. An exception of its destructor terminates the process. */
    void clear() noexcept
    {
        if (rco != nullptr) {
            std::exchange(rco, nullptr)->releaseRef(std::nothrow);
        }
    }

    /** Returns the object, or null if this is empty. Does not acquire a reference. */
    const T* get() const noexcept
    {
        return rco;
    }

protected:
    /** Replaces the object. If `other` is no T, throws `std::bad_cast`, and this reference is unchanged. */
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
     * Replaces the object. The new reference is acquired first, in case only the old object keeps `other`
     * alive. If releasing the old object throws, this reference still refers to it, and the new one is
     * released. An old object whose destructor threw is destroyed nevertheless.
     */
    void updatePtr(const T* other)
    {
        if (other != rco) {
            replace(acquired(other), releaseQuietly);
        }
    }

    /** Acquires a reference to `object`, which may be null, and returns it. */
    static T* acquired(const T* object)
    {
        if (object != nullptr) {
            object->acquireRef();
        }
        return const_cast<T*>(object);
    }

    /** Returns the object. Throws like operator->(). */
    T* checked() const
    {
        if (rco == nullptr) {
            throwNullDerefException();
        }
        return rco;
    }

    /** The object, of which this owns one reference, or null. */
    T* rco;

private:
    /**
     * Transfers the pointer of `ref`, which may be part of the object that is released here: `ref` is empty
     * before the release, and not accessed after it unless it throws. In that case the pointer returns to
     * `ref`, and the object that the release assigned to `ref`, if any, is released. A move to itself changes
     * nothing.
     */
    void moveFrom(ConstRcoRef& ref)
    {
        replace(std::exchange(ref.rco, nullptr),
                [&ref](T* taken) { releaseQuietly(std::exchange(ref.rco, taken)); });
    }

    /**
     * Replaces the object by `counted`, of which the caller has acquired a reference, and releases the old
     * object. If that throws, this refers to the old object again, and `undo` is called with the object that
     * it referred to during the release: `counted`, unless the release assigned another one.
     *
     * The pointer is changed before the release, and no member is accessed after it: the release may destroy
     * the object that this reference is part of, or run code that assigns to it.
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
