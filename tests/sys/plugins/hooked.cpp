// A plug-in that calls the program that loads it, from its static constructor and destructor.

extern "C" void dyn_test_loaded();
extern "C" void dyn_test_unloaded();

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int dyn_hooked_value;
int dyn_hooked_value = 3;

namespace {

struct Hooked
{
    Hooked()
    {
        dyn_test_loaded();
    }
    ~Hooked()
    {
        dyn_test_unloaded();
    }
};

const Hooked hooked;

}
