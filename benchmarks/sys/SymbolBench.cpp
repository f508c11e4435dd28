// Lookups of symbols and libraries that are in the cache, compared with those of the dynamic linker.

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

/** The plug-in, with all its symbols in the cache. */
struct CachedPlugin
{
    CachedPlugin() : library(DynLibrary::load(PLUGIN)), handle(dlopen(PLUGIN.c_str(), RTLD_LAZY | RTLD_LOCAL))
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

const CachedPlugin& cachedPlugin()
{
    static const CachedPlugin instance;
    return instance;
}

/** Looks up a symbol and releases the reference. */
void symbolHit(benchmark::State& state)
{
    const DynLibrary& library = *cachedPlugin().library;
    for (auto _ : state) {
        benchmark::DoNotOptimize(library.symbol(SYMBOL)->func());
    }
}

void dlsymHit(benchmark::State& state)
{
    void* const handle = cachedPlugin().handle;
    for (auto _ : state) {
        benchmark::DoNotOptimize(dlsym(handle, SYMBOL.c_str()));
    }
}

/** The symbol is not in the cache: it is looked up by the dynamic linker, and removed when it is released. */
void symbolMiss(benchmark::State& state)
{
    const DynLibrary& library = *cachedPlugin().library;
    for (auto _ : state) {
        benchmark::DoNotOptimize(library.symbol("bench_plugin_state")->data());
    }
}

void libraryHit(benchmark::State& state)
{
    cachedPlugin();
    for (auto _ : state) {
        benchmark::DoNotOptimize(DynLibrary::load(PLUGIN));
    }
}

void dlopenHit(benchmark::State& state)
{
    cachedPlugin();
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
