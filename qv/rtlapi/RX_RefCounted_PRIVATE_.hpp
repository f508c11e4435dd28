#ifndef QV_RTLAPI_RX_REFCOUNTED_PRIVATE_HPP
#define QV_RTLAPI_RX_REFCOUNTED_PRIVATE_HPP

/**
 * @file
 * The base of the reference-counted objects of the runtime layer.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/atomic.h>

class RX_Exception_;

/** Reports on standard error, in one line, that an object is destroyed while there are references to it. */
DALNIM_API void RX_BadLockableDestruct() noexcept;

/**
 * A reference-counted object. It is created by `new` with one reference, owned by its creator; the last
 * `detach` deletes it.
 *
 * Thread safety: `attach` and `detach` may be called by any thread that holds a reference.
 */
class DALNIM_API RX_RefCounted_PRIVATE_
{
public:
    RX_RefCounted_PRIVATE_() = default;
    RX_RefCounted_PRIVATE_(const RX_RefCounted_PRIVATE_&) = delete;
    RX_RefCounted_PRIVATE_& operator=(const RX_RefCounted_PRIVATE_&) = delete;
    /** Calls RX_BadLockableDestruct() if there are references. */
    virtual ~RX_RefCounted_PRIVATE_() noexcept(false);

    /** Adds a reference. The caller must hold one, or know of one that outlasts the call. */
    void attach() noexcept
    {
        qv_si_atomic_increment(&_refc);
    }
    /**
     * Releases a reference. The last one deletes the object on this thread; exceptions of its destructor
     * propagate.
     */
    void detach()
    {
        if (qv_si_atomic_decrement(&_refc) == 0) {
            delete this;
        }
    }

protected:
    /**
     * Guards the construction of an object: the first member of a class if constructing its other members may
     * throw. Unless complete() was called at the end of the constructor, the destructor drops the creator's
     * reference, since there is no object.
     */
    class Construction
    {
    public:
        /** Guards the construction of `object`. */
        explicit Construction(RX_RefCounted_PRIVATE_& object) noexcept : _object(&object) {}
        Construction(const Construction&) = delete;
        Construction& operator=(const Construction&) = delete;
        ~Construction()
        {
            if (_object != nullptr) {
                _object->_refc = 0;
            }
        }

        /** Keeps the creator's reference: construction has succeeded. */
        void complete() noexcept
        {
            _object = nullptr;
        }

    private:
        RX_RefCounted_PRIVATE_* _object;
    };

    /** Drops the creator's reference, since there will be no object, and throws `exception`. */
    [[noreturn]] void throwFromConstructor(const RX_Exception_& exception);

private:
    si_atomic_t _refc = 1;
};

#endif
