#ifndef DALNIM_TYPE_CLONEABLE_HPP
#define DALNIM_TYPE_CLONEABLE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * Interface of objects that can be copied through a pointer to their base.
 *
 * Content that is cloned with a context derives from mem::RefCntObject and from this class; it needs no
 * destructor of its own. A cloneable exception either derives from sys::system_error or declares its
 * destructor, because that of std::exception must not throw: `~Failure() noexcept override = default;`.
 */
class DALNIM_API Cloneable
{
public:
    /**
     * Copies this object.
     * @param deep  requests a copy that shares nothing with this object. Classes that share nothing ignore it
     * @return a new object, owned by the caller
     */
    virtual Cloneable* clone(bool deep) const = 0;
    /** May throw, like that of Object, so that a class can derive from both without declaring its own. */
    virtual ~Cloneable() noexcept(false);

protected:
    Cloneable() noexcept;
    /** @name Copying */
    /** @{ */
    /** Copies nothing. */
    Cloneable(const Cloneable&) noexcept;
    Cloneable& operator=(const Cloneable&) noexcept;
    /** @} */
};

}

#endif
