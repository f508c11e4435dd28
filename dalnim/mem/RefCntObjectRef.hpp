#ifndef DALNIM_MEM_REFCNTOBJECTREF_HPP
#define DALNIM_MEM_REFCNTOBJECTREF_HPP

#include <dalnim/mem/RcoRef.hpp>

namespace com::kor::dal::nim::mem {

/** A reference to any reference-counted object. */
typedef RcoRef<RefCntObject> RefCntObjectRef;
/** A reference to any reference-counted object, for reading. */
typedef ConstRcoRef<RefCntObject> ConstRefCntObjectRef;

extern template class DALNIM_API ConstRcoRef<RefCntObject>;
extern template class DALNIM_API RcoRef<RefCntObject>;

}

#endif
