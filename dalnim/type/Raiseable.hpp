#ifndef DALNIM_TYPE_RAISEABLE_HPP
#define DALNIM_TYPE_RAISEABLE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * Interface of exceptions that can throw themselves. A caller that holds an exception by a pointer to
 * `std::exception` cross-casts it to this interface and throws it with its dynamic type; `throw *pointer`
 * would slice it.
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
    /** Copies nothing. */
    Raiseable(const Raiseable&) noexcept;
    Raiseable& operator=(const Raiseable&) noexcept;
    /** @} */
};

}

#endif
