// A plug-in that loads another one in its static constructor, and holds a symbol of it.

#include <dalnim/sys/DynLibrary.hpp>

namespace {

namespace sys = com::kor::dal::nim::sys;

const sys::DynSymbolRef other = sys::DynLibrary::load(DYN_OTHER)->symbol("dyn_other_value");

}

extern "C" __attribute__((visibility("default"))) int dyn_loading_value();

int dyn_loading_value()
{
    return *static_cast<int*>(other->data()) + 100;
}
