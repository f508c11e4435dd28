#ifndef DALNIM_TYPE_OBJECT_HPP
#define DALNIM_TYPE_OBJECT_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::type {

/**
 * The root of the object classes. Classes derive from it virtually, so that an object with several roots is
 * still one `Object`.
 *
 * The destructor of an application's class may throw. If the object is reference-counted, the exception
 * leaves mem::RefCntObject::releaseRef(); if a reference is cleared or destroyed, it terminates the process.
 */
class DALNIM_API Object
{
public:
    virtual ~Object() noexcept(false);

protected:
    Object() noexcept = default;
    /** @name Copying */
    /** @{ */
    /** Copies nothing. */
    Object(const Object&) noexcept;
    Object& operator=(const Object&) noexcept;
    /** @} */
};

}

#endif
