#include <dalnim/dalbase.hpp>

#include <dalnim/type/ContainerContext.hpp>

namespace com::kor::dal::nim::mem {

template class ConstRcoRef<type::ContainerContext>;
template class RcoRef<type::ContainerContext>;

}
