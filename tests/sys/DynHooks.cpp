#include "DynPlugins.hpp"

namespace dyntest {

namespace {

Hooks* current = nullptr;

void call(const std::function<void()>& hook)
{
    if (hook) {
        hook();
    }
}

}

Hooks::Hooks()
{
    current = this;
}

Hooks::~Hooks()
{
    current = nullptr;
}

}

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void dyn_test_loaded();
void dyn_test_loaded()
{
    if (dyntest::current != nullptr) {
        dyntest::call(dyntest::current->loaded);
    }
}

EXPORTED void dyn_test_unloaded();
void dyn_test_unloaded()
{
    if (dyntest::current != nullptr) {
        dyntest::call(dyntest::current->unloaded);
    }
}
