// The library that the plain plug-in is linked with.

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int dyn_base_function();
int dyn_base_function()
{
    return 41;
}
