#ifndef QV_RTLAPI_RX_REFCOUNTED_PRIVATE_HPP
#define QV_RTLAPI_RX_REFCOUNTED_PRIVATE_HPP

/**
 * @file
 * The base of the counted objects of the runtime layer.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/atomic.h>

class RX_Exception_;

/** Reports, in one line on the standard error, an object that goes while it has references. */
DALNIM_API void RX_BadLockableDestruct() noexcept;

/**
 * An object that counts the references to it. Made with `new` it starts with one, its creator's; the
 * last `detach` deletes it.
 *
 * Thread safety: `attach` and `detach` may be called from any thread that has a reference.
 */
class DALNIM_API RX_RefCounted_PRIVATE_
{
public:
    RX_RefCounted_PRIVATE_() = default;
    RX_RefCounted_PRIVATE_(const RX_RefCounted_PRIVATE_&) = delete;
    RX_RefCounted_PRIVATE_& operator=(const RX_RefCounted_PRIVATE_&) = delete;
    /** Calls RX_BadLockableDestruct when there are references. */
    virtual ~RX_RefCounted_PRIVATE_() noexcept(false);

    /** One reference more. The caller has one, or knows of one that stays. */
    void attach() noexcept
    {
        qv_si_atomic_increment(&_refc);
    }
    /**
     * One reference less; the last one deletes the object on this thread, and what its destructor throws
     * passes.
     */
    void detach()
    {
        if (qv_si_atomic_decrement(&_refc) == 0) {
            delete this;
        }
    }

protected:
    /**
     * The first member of a class whose other members may fail to be made: there is no object then, and
     * the creator's reference is given up. It is told at the end of the constructor that nothing failed.
     */
    class Construction
    {
    public:
        /** Watches over the making of `object`. */
        explicit Construction(RX_RefCounted_PRIVATE_& object) noexcept : _object(&object) {}
        Construction(const Construction&) = delete;
        Construction& operator=(const Construction&) = delete;
        ~Construction()
        {
            if (_object != nullptr) {
                _object->_refc = 0;
            }
        }

        /** Nothing failed: the object keeps the creator's reference. */
        void complete() noexcept
        {
            _object = nullptr;
        }

    private:
        RX_RefCounted_PRIVATE_* _object;
    };

    /** Gives up the creator's reference, for there will be no object, and throws the exception. */
    [[noreturn]] void throwFromConstructor(const RX_Exception_& exception);

private:
    si_atomic_t _refc = 1;
};

#endif
