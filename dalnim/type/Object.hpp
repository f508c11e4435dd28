#ifndef DALNIM_TYPE_OBJECT_HPP
#define DALNIM_TYPE_OBJECT_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * The root of the object classes. Classes derive from it virtually, so that an object with several
 * roots still is one `Object`.
 *
 * The destructor may throw: an application's object is allowed to fail while it goes. Of a counted
 * object the exception passes through mem::RefCntObject::releaseRef(), and ends the process where a
 * reference is cleared or destroyed.
 */
class DALNIM_API Object
{
public:
    virtual ~Object() noexcept(false);

protected:
    Object() noexcept;
    /** @name Copying */
    /** @{ */
    /** There is nothing to copy. */
    Object(const Object&) noexcept;
    Object& operator=(const Object&) noexcept;
    /** @} */
};

}

#endif
