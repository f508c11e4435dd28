// The plug-in that SymbolBench loads: a typical one in C++ that exports some functions.

#include <string>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

std::string state = "initialised";

}

EXPORTED int bench_plugin_state;
int bench_plugin_state = 1;

EXPORTED int bench_plugin_create();
EXPORTED int bench_plugin_create()
{
    state += '.';
    return static_cast<int>(state.size());
}

EXPORTED int bench_plugin_describe();
EXPORTED int bench_plugin_describe()
{
    return static_cast<int>(state.size());
}

EXPORTED int bench_plugin_start();
EXPORTED int bench_plugin_start()
{
    return 0;
}

EXPORTED int bench_plugin_stop();
EXPORTED int bench_plugin_stop()
{
    return 1;
}
