// A plug-in that needs a library with a copy of the library.

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED unsigned int dyn_copied_id();
EXPORTED unsigned int dyn_needing_id();

unsigned int dyn_needing_id()
{
    return dyn_copied_id();
}
