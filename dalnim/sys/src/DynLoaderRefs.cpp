#include <dalnim/dalbase.hpp>

#include <dalnim/sys/DynLibrary.hpp>
#include <dalnim/sys/DynLoaderMgr.hpp>
#include <dalnim/sys/DynSymbol.hpp>

namespace com::kor::dal::nim::mem {

template class ConstRcoRef<sys::DynLibrary>;
template class ConstRcoRef<sys::DynSymbol>;
template class ConstRcoRef<sys::DynLoaderMgr>;
template class RcoRef<sys::DynLoaderMgr>;

}
