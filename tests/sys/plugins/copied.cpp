// A plug-in, or a library that a plug-in needs, that is linked with a copy of the library.

#include <dalnim/sys/UniqueID.hpp>

extern "C" void dyn_test_loaded();

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED unsigned int dyn_copied_id();

namespace {

struct Hooked
{
    Hooked()
    {
        dyn_test_loaded();
    }
};

const Hooked hooked;

}

unsigned int dyn_copied_id()
{
    return com::kor::dal::nim::sys::UniqueID::nextUid32();
}
