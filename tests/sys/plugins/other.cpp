// A plug-in that stands alone.

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED int dyn_other_value;
int dyn_other_value = 5;
