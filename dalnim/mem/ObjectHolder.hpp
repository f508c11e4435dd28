#ifndef DALNIM_MEM_OBJECTHOLDER_HPP
#define DALNIM_MEM_OBJECTHOLDER_HPP

#include <dalnim/mem/RefCntObject.hpp>

namespace com::kor::dal::nim::mem {

/**
 * Holds an object of which the static type does not show whether it is reference-counted. Decides at run
 * time: it owns a reference to a reference-counted object, and deletes a plain one. Copies share a
 * reference-counted object; a plain object moves to the copy and leaves its source empty.
 *
 * Thread safety: none.
 */
class DALNIM_API ObjectHolder
{
public:
    static constexpr const char CLASS_NAME[] = "ObjectHolder";

    /** Whether the holder acquires a reference when it stores an object, and releases one at its end. */
    enum StorageMode : UInt32_t {
        /** Neither acquires nor releases. */
        SM_NO_ACTION = 0,
        /** Receives one reference, or the ownership of a plain object, from the caller, and releases it. */
        SM_DEREF_ONLY = 1,
        /** Acquires, but does not release. */
        SM_ACQUIRE_ONLY = 2,
        /** Acquires and releases. */
        SM_ACQUIRE_AND_DEREF = 3
    };

    /** An empty holder. */
    ObjectHolder() noexcept;
    /** Same as assign() to an empty holder. */
    ObjectHolder(type::Object* object, StorageMode mode);
    /** Same as an assignment to an empty holder. */
    ObjectHolder(const ObjectHolder& ref);
    /** Releases the object if the mode requires it. If that throws, the process is terminated. */
    ~ObjectHolder();

    /**
     * Releases the old object, if it is a plain one in every mode, and then stores that of `ref`: shares a
     * reference-counted object, and moves a plain one out of `ref`. Self-assignment has no effect. `ref` must
     * not be part of the old object. If the release throws, the old object remains.
     */
    ObjectHolder& operator=(const ObjectHolder& ref);
    /** Releases the old object in the same way, which must not destroy `object`, and then stores `object`. */
    ObjectHolder& assign(type::Object* object, StorageMode mode);

    /** Returns the object, or null. The holder still owns it. */
    operator type::Object*() noexcept
    {
        return held();
    }
    /** Returns the object, or null. The holder still owns it. */
    operator const type::Object*() const noexcept
    {
        return held();
    }
    /** Returns true if the holder is empty. */
    bool operator!() const noexcept
    {
        return held() == nullptr;
    }
    /** @name Comparison */
    /** @{ */
    /** Compares the addresses of the objects, regardless of the modes. */
    bool operator==(const ObjectHolder& ref) const noexcept;
    bool operator!=(const ObjectHolder& ref) const noexcept;
    bool operator<(const ObjectHolder& ref) const noexcept;
    /** @} */

    /** Transfers the object, with the reference that was acquired to it, to the caller. The holder is then
     * empty. */
    type::Object* release() noexcept;

private:
    bool counted() const noexcept;
    type::Object* held() const noexcept;
    void store(type::Object* object, StorageMode mode);
    void storeFrom(const ObjectHolder& ref);
    void storeCounted(RefCntObject* shared);
    void releaseHeld();

    // Mutable, because copying moves a plain object out of its const source.
    union
    {
        mutable type::Object* obj;
        mutable RefCntObject* rco;
    };
    /** The mode in the low two bits; the third is set if `rco` is the active member. */
    UInt32_t flags;
};

}

#endif
