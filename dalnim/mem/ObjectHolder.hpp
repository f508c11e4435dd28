#ifndef DALNIM_MEM_OBJECTHOLDER_HPP
#define DALNIM_MEM_OBJECTHOLDER_HPP

#include <dalnim/mem/RefCntObject.hpp>

namespace com::kor::dal::nim::mem {

/**
 * Holds an object of unknown ownership: asks at run time whether it is counted, and then owns it by
 * counting, otherwise by deleting. Copies share a counted object; a plain object travels from holder
 * to holder and leaves its source empty. A holder is not synchronised.
 */
class DALNIM_API ObjectHolder
{
public:
    static constexpr const char CLASS_NAME[] = "ObjectHolder";

    /** What is done on entry, and what at the end. */
    enum StorageMode : UInt32_t {
        /** Neither acquire nor release. */
        SM_NO_ACTION = 0,
        /** Takes over one reference, or the ownership, and gives it up at the end. */
        SM_DEREF_ONLY = 1,
        /** Acquires on entry and gives nothing up at the end. */
        SM_ACQUIRE_ONLY = 2,
        /** Acquires on entry and releases at the end. */
        SM_ACQUIRE_AND_DEREF = 3
    };

    /** Holds nothing. */
    ObjectHolder() noexcept;
    /** As assign() to an empty holder. */
    ObjectHolder(type::Object* object, StorageMode mode);
    /** By the rules of assignment. */
    ObjectHolder(const ObjectHolder& ref);
    /** Gives up what it holds if its mode says so; a release that throws ends the process. */
    ~ObjectHolder();

    /**
     * Lets go of what is held, in whatever mode if it is a plain object, and then takes over: a
     * counted object is shared, a plain one leaves `ref` empty. A copy to itself changes nothing; `ref`
     * must not be a part of what is let go. A release that throws leaves the old object held.
     */
    ObjectHolder& operator=(const ObjectHolder& ref);
    /** Lets go of what is held, as above, which must not end `object`, and then holds that. */
    ObjectHolder& assign(type::Object* object, StorageMode mode);

    /** What is held, or null; the holder keeps it. */
    operator type::Object*() noexcept
    {
        return held();
    }
    /** What is held, or null; the holder keeps it. */
    operator const type::Object*() const noexcept
    {
        return held();
    }
    /** Whether nothing is held. */
    bool operator!() const noexcept
    {
        return held() == nullptr;
    }
    /** @name Comparison */
    /** @{ */
    /** By the addresses of the objects, whatever the modes. */
    bool operator==(const ObjectHolder& ref) const noexcept;
    bool operator!=(const ObjectHolder& ref) const noexcept;
    bool operator<(const ObjectHolder& ref) const noexcept;
    /** @} */

    /** Gives the object to the caller, with whatever was acquired for it, and holds nothing. */
    type::Object* release() noexcept;

private:
    bool counted() const noexcept;
    type::Object* held() const noexcept;
    void store(type::Object* object, StorageMode mode);
    void storeFrom(const ObjectHolder& ref);
    void storeCounted(RefCntObject* shared);
    void releaseHeld();

    // Copying takes a plain object away from its source, which is const to the copy.
    union
    {
        mutable type::Object* obj;
        mutable RefCntObject* rco;
    };
    /** The mode in the low two bits, and a third that is set while it is the second pointer. */
    UInt32_t flags;
};

}

#endif
