#ifndef DALNIM_TYPE_RAISEABLE_HPP
#define DALNIM_TYPE_RAISEABLE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * An exception that can throw itself. A caller who holds a copy by a pointer to `std::exception`
 * cross-casts it to this interface and raises it without losing its type, where a plain `throw`
 * would cut it down to the static one.
 */
class DALNIM_API Raiseable
{
public:
    /** Throws a copy of this object; the object itself stays valid. */
    [[noreturn]] virtual void raise() const = 0;
    virtual ~Raiseable();

protected:
    Raiseable() noexcept;
    /** @name Copying */
    /** @{ */
    /** There is nothing to copy. */
    Raiseable(const Raiseable&) noexcept;
    Raiseable& operator=(const Raiseable&) noexcept;
    /** @} */
};

}

#endif
