#include <dalnim/dalbase.hpp>

#include <dalnim/type/Context.hpp>

namespace com::kor::dal::nim::mem {

template class ConstRcoRef<type::Context>;
template class RcoRef<type::Context>;

}
