#include <dalnim/dalbase.hpp>

#include <dalnim/type/SecurityContext.hpp>

namespace com::kor::dal::nim::mem {

template class ConstRcoRef<type::SecurityContext>;
template class RcoRef<type::SecurityContext>;

}
