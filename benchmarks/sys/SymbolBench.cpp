// What a look-up costs of a symbol and of a library that somebody holds, beside the dynamic linker's own.

#include <dalnim/sys/DynLibrary.hpp>

#include <benchmark/benchmark.h>

#include <dlfcn.h>

namespace {

using com::kor::dal::nim::String;
using com::kor::dal::nim::sys::ConstDynLibraryRef;
using com::kor::dal::nim::sys::DynLibrary;
using com::kor::dal::nim::sys::DynSymbolRef;

const String PLUGIN = DALNIM_BENCH_PLUGIN;
const String SYMBOL = "bench_plugin_create";

/** The plug-in with all its symbols in the cache. */
struct Held
{
    Held() : library(DynLibrary::load(PLUGIN)), handle(dlopen(PLUGIN.c_str(), RTLD_LAZY | RTLD_LOCAL))
    {
        for (const char* const name : {"create", "describe", "start", "stop"}) {
            symbols[count++] = library->symbol(String("bench_plugin_") + name);
        }
    }

    const ConstDynLibraryRef library;
    DynSymbolRef symbols[4];
    int count = 0;
    void* const handle;
};

const Held& held()
{
    static const Held instance;
    return instance;
}

/** A look-up and the end of the reference that it gave. */
void symbolHit(benchmark::State& state)
{
    const DynLibrary& library = *held().library;
    for (auto _ : state) {
        benchmark::DoNotOptimize(library.symbol(SYMBOL)->func());
    }
}

void dlsymHit(benchmark::State& state)
{
    void* const handle = held().handle;
    for (auto _ : state) {
        benchmark::DoNotOptimize(dlsym(handle, SYMBOL.c_str()));
    }
}

/** Nobody holds the symbol: it is found anew, and forgotten. */
void symbolMiss(benchmark::State& state)
{
    const DynLibrary& library = *held().library;
    for (auto _ : state) {
        benchmark::DoNotOptimize(library.symbol("bench_plugin_state")->data());
    }
}

void libraryHit(benchmark::State& state)
{
    held();
    for (auto _ : state) {
        benchmark::DoNotOptimize(DynLibrary::load(PLUGIN));
    }
}

void dlopenHit(benchmark::State& state)
{
    held();
    for (auto _ : state) {
        void* const handle = dlopen(PLUGIN.c_str(), RTLD_LAZY | RTLD_LOCAL);
        benchmark::DoNotOptimize(handle);
        dlclose(handle);
    }
}

BENCHMARK(symbolHit)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(dlsymHit)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(symbolMiss);
BENCHMARK(libraryHit)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(dlopenHit)->ThreadRange(1, 4)->UseRealTime();

}
