#ifndef DALNIM_MEM_REFCNTOBJECT_HPP
#define DALNIM_MEM_REFCNTOBJECT_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/type/Object.hpp>
#include <qv/pmx/atomic.h>

#include <new>

namespace com::kor::dal::nim::mem {

/**
 * Base class of objects with an intrusive reference count, which RcoRef and ConstRcoRef manage.
 *
 * A new object has no references; the first RcoRef acquires one. The release that lowers the count to the
 * bias deletes the object, on the releasing thread. For each object, counting can be disabled (objects in
 * static storage or on the stack) or done without atomic operations (objects that one thread at a time uses).
 * The bias is the number of references that do not keep the object alive; it must not change while other
 * threads release.
 */
class DALNIM_API RefCntObject : public virtual type::Object
{
public:
    static constexpr const char CLASS_NAME[] = "RefCntObject";

    /** An object that is counted atomically. */
    RefCntObject() noexcept : RefCntObject(true, true) {}
    /**
     * @param count_refs  whether references are counted; otherwise the object's owner destroys it
     * @param mt_safe     whether they are counted atomically; otherwise one thread at a time may use the
     * object
     */
    RefCntObject(bool count_refs, bool mt_safe) noexcept
        : refs(0), bias(0),
          flags(static_cast<std::uint8_t>((count_refs ? COUNT_REFS : 0) | (mt_safe ? MT_SAFE : 0)))
    {
    }
    /** The copy starts without references. How they are counted is copied. */
    RefCntObject(const RefCntObject& ref) noexcept;
    /** Copies nothing: the references to this object are unaffected. */
    RefCntObject& operator=(const RefCntObject&) noexcept;

    // Inline and hidden: each module calls its own copy. An exported one would tie the library to the plug-in
    // that was loaded first. Declared inline, so that the library alone contains the virtual table.
    /** Acquires a reference. */
    __attribute__((visibility("hidden"))) inline virtual void acquireRef() const;
    /**
     * Returns the number of references.
     * @param incorporate_bias  subtracts the bias: the result is the number of references that keep the
     * object alive. A caller that owns the only one may change the object in place, since former owners have
     * finished their accesses
     */
    virtual UInt32_t refCount(bool incorporate_bias = true) const;
    /**
     * Releases a reference, and deletes the object if it was the last one. Exceptions of the object's
     * destructor propagate.
     * @throws sys::system_error  -1, "Reference count < 0", if there was none
     */
    virtual void releaseRef() const;
    /**
     * The same without throwing itself. Exceptions of the object's destructor propagate here, too, but not
     * from ConstRcoRef::clear().
     * @return false if there was no reference
     */
    __attribute__((visibility("hidden"))) inline virtual bool releaseRef(const std::nothrow_t&) const;

protected:
    /** Protected: the last release deletes the object. */
    ~RefCntObject() noexcept(false) override;

    /**
     * Atomically releases a reference if more than `floor`, besides the bias, remain. The object must be
     * counted atomically.
     * @return true if it was released; otherwise the caller still owns the reference
     */
    bool releaseRefAbove(UInt32_t floor) const noexcept;

    /** Returns the number of references that do not keep the object alive. */
    UInt32_t refBias() const noexcept;
    /** Sets the bias. Throws sys::system_error 34 (ERANGE), "Bias would exceed range limits.", unless below
     * the count. */
    void refBias(unsigned int new_bias);
    /** Adds to the bias. Throws like refBias(), also if the sum is negative. */
    void adjBias(int bias_adjustment);
    /** Adds 1 to the bias. Throws like adjBias(). */
    void incBias();
    /** Subtracts 1 from the bias. Throws like adjBias(). */
    void decBias();

private:
    friend class RefCntAccess;

    /**
     * Decrements the count and returns it without the bias: 0 if the caller must delete the object, negative
     * if there was no reference.
     */
    std::int32_t decrement() const noexcept;
    /** Deletes the object. Returns true. */
    bool destroy() const;

    enum Flags : std::uint8_t { COUNT_REFS = 1, MT_SAFE = 2 };

    mutable si_atomic_t refs;
    UInt32_t bias;
    std::uint8_t flags;
};

// Inline: a compiler that knows or guesses the class of an object then makes no call.

inline void RefCntObject::acquireRef() const
{
    if ((flags & COUNT_REFS) == 0) {
        return;
    }
    if ((flags & MT_SAFE) != 0) {
        qv_si_atomic_increment(&refs);
    } else {
        ++refs;
    }
}

inline std::int32_t RefCntObject::decrement() const noexcept
{
    // Read first: after the decrement, another thread may delete the object.
    const UInt32_t bias_before = bias;
    si_atomic_t count = 0;
    if ((flags & MT_SAFE) == 0) {
        count = --refs;
    } else if (bias_before == 0 && __atomic_load_n(&refs, __ATOMIC_ACQUIRE) == 1) {
        // The owner of the only reference need not decrement atomically: no other thread uses the object. As
        // in refCount(), it sees the writes of former owners. With a bias there are further references, which
        // other threads may copy.
        __atomic_store_n(&refs, 0, __ATOMIC_RELAXED);
    } else {
        count = qv_si_atomic_decrement(&refs);
    }
    return static_cast<std::int32_t>(static_cast<UInt32_t>(count) - bias_before);
}

inline bool RefCntObject::releaseRef(const std::nothrow_t&) const
{
    if ((flags & COUNT_REFS) == 0) {
        return true;
    }
    const std::int32_t alive = decrement();
    return alive != 0 ? alive > 0 : destroy();
}

}

#endif
