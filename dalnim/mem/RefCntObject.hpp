#ifndef DALNIM_MEM_REFCNTOBJECT_HPP
#define DALNIM_MEM_REFCNTOBJECT_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/type/Object.hpp>
#include <qv/pmx/atomic.h>

#include <new>

namespace com::kor::dal::nim::mem {

/**
 * Base of the objects that live by intrusive counting behind RcoRef.
 *
 * A new object has no reference; the first RcoRef takes one. It is deleted by the release that
 * brings the count to the bias, on the thread that released. Per object, counting can be switched
 * off, for objects in static storage or on a stack, and can be done without atomic operations, for
 * objects that one thread at a time uses. The bias says how many counted references do not keep
 * the object alive; it must not change while other threads release.
 */
class DALNIM_API RefCntObject : public virtual type::Object
{
public:
    static constexpr const char CLASS_NAME[] = "RefCntObject";

    /** Counted, and safe to share between threads. */
    RefCntObject() noexcept;
    /**
     * @param count_refs false makes references count nothing: the object's owner destroys it
     * @param mt_safe    false makes counting plain, for one thread at a time
     */
    RefCntObject(bool count_refs, bool mt_safe) noexcept;
    /** A copy has no references of its own; it takes over how they are counted. */
    RefCntObject(const RefCntObject& ref) noexcept;
    /** Does nothing: assigning a value must not disturb who holds the object. */
    RefCntObject& operator=(const RefCntObject&) noexcept;

    /** Takes a reference. */
    virtual void acquireRef() const;
    /**
     * The count of references, less the bias when `incorporate_bias` is set: the number of those
     * that keep the object alive. A caller that holds the only one may change the object in place: the
     * other owners have finished with it.
     */
    virtual UInt32_t refCount(bool incorporate_bias = true) const;
    /**
     * Gives a reference up, and deletes the object with the last one.
     * Throws sys::system_error -1, "Reference count < 0", when there was none; what the object's
     * destructor throws passes through.
     */
    virtual void releaseRef() const;
    /**
     * The same without an exception of its own: false when there was no reference to give up. What
     * the object's destructor throws passes through here too; ConstRcoRef::clear() stops it.
     */
    virtual bool releaseRef(const std::nothrow_t&) const;

protected:
    /** Only the last release, or a subclass, deletes. */
    ~RefCntObject() noexcept(false) override;

    /**
     * Gives a reference up if more than `floor` are left then, in one step: true when it did. What it
     * leaves alone is for a release. For objects that are counted safely between threads.
     */
    bool releaseRefAbove(UInt32_t floor) const noexcept;

    /** How many references do not keep the object alive. */
    UInt32_t refBias() const noexcept;
    /** Throws sys::system_error 34, "Bias would exceed range limits.", unless below the count. */
    void refBias(unsigned int new_bias);
    /** Adds to the bias; throws as refBias(), also for a sum below 0. */
    void adjBias(int bias_adjustment);
    /** Adds 1 to the bias; throws as refBias(). */
    void incBias();
    /** Takes 1 from the bias; throws as refBias(). */
    void decBias();

private:
    /** Gives a count up. What is left to keep the object alive, 0 when it is to go, below 0 for none. */
    std::int32_t decrement() const noexcept;

    enum Flags : std::uint8_t { COUNT_REFS = 1, MT_SAFE = 2 };

    mutable si_atomic_t refs;
    UInt32_t bias;
    std::uint8_t flags;
};

}

#endif
