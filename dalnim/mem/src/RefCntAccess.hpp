#ifndef DALNIM_MEM_SRC_REFCNTACCESS_HPP
#define DALNIM_MEM_SRC_REFCNTACCESS_HPP

#include <dalnim/mem/RefCntObject.hpp>

namespace com::kor::dal::nim::mem {

/** Operations of RefCntObject that only other parts of the library use. */
class RefCntAccess
{
public:
    /**
     * Undoes an acquireRef() of the caller: if that is the only reference, it is released without destroying
     * the object, which its owner keeps. Otherwise this is releaseRef().
     */
    static void undoAcquireRef(const RefCntObject& object)
    {
        // The count of the base class: one that a subclass keeps elsewhere is for its own releaseRef().
        if (object.RefCntObject::refCount() != 1) {
            object.releaseRef();
        } else if ((object.flags & RefCntObject::MT_SAFE) != 0) {
            qv_si_atomic_decrement(&object.refs);
        } else {
            --object.refs;
        }
    }
};

}

#endif
