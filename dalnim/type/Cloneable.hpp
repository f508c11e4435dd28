#ifndef DALNIM_TYPE_CLONEABLE_HPP
#define DALNIM_TYPE_CLONEABLE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * Objects that can be copied through a pointer to their base.
 *
 * Content that is cloned with a context derives from mem::RefCntObject and from this, and needs no destructor
 * of its own. A cloneable exception derives from sys::system_error, or declares its destructor, which that of
 * std::exception requires not to throw: `~Failure() noexcept override = default;`.
 */
class DALNIM_API Cloneable
{
public:
    /**
     * A copy of this object, owned by the caller.
     * @param deep asks for a copy that shares nothing with the source; who has nothing to share
     *             ignores it
     */
    virtual Cloneable* clone(bool deep) const = 0;
    /** May throw, as that of Object, so that a class can derive from both without declaring its own. */
    virtual ~Cloneable() noexcept(false);

protected:
    Cloneable() noexcept;
    /** @name Copying */
    /** @{ */
    /** There is nothing to copy. */
    Cloneable(const Cloneable&) noexcept;
    Cloneable& operator=(const Cloneable&) noexcept;
    /** @} */
};

}

#endif
