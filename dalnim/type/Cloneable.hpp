#ifndef DALNIM_TYPE_CLONEABLE_HPP
#define DALNIM_TYPE_CLONEABLE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/** What can be copied through a pointer to its base. */
class DALNIM_API Cloneable
{
public:
    /**
     * A copy of this object, owned by the caller.
     * @param deep asks for a copy that shares nothing with the source; who has nothing to share
     *             ignores it
     */
    virtual Cloneable* clone(bool deep) const = 0;
    virtual ~Cloneable();

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
