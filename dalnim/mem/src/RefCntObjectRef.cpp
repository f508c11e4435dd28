#include <dalnim/dalbase.hpp>

#include <dalnim/mem/RefCntObjectRef.hpp>

namespace com::kor::dal::nim::mem {

template class ConstRcoRef<RefCntObject>;
template class RcoRef<RefCntObject>;

}
