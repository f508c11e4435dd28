// A plug-in without dependencies on another library of the tests.

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int dyn_other_value;
int dyn_other_value = 5;
