// Duplicates a context of shared entries, as at the start of each thread and task, compared with copying maps
// that could be used instead.

#include <dalnim/sys/internal/CurrentContext.hpp>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace {

namespace nim = com::kor::dal::nim;
using nim::sys::internal::CurrentContext;
using nim::sys::internal::CurrentContextRef;

class Entry : public nim::mem::RefCntObject
{};

void entries(benchmark::internal::Benchmark* benchmark)
{
    for (const int count : {0, 1, 4, 10, 32, 100, 1000}) {
        benchmark->Arg(count);
    }
}

void duplicateContext(benchmark::State& state)
{
    CurrentContextRef source(new CurrentContext);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        source->add(nim::mem::RefCntObjectRef(new Entry), nim::type::Context::allocateKey(1));
    }
    for (auto _ : state) {
        const CurrentContextRef copy(new CurrentContext(*source));
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(duplicateContext)->Apply(entries);

template <class Key, class MakeKey>
void copyMap(benchmark::State& state, MakeKey makeKey)
{
    typedef std::map<Key, std::shared_ptr<Entry>> Map;
    Map source;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        source.emplace(makeKey(i), std::make_shared<Entry>());
    }
    for (auto _ : state) {
        const auto copy = std::make_unique<Map>(source);
        benchmark::DoNotOptimize(copy);
    }
}

void copyMapOfStrings(benchmark::State& state)
{
    copyMap<std::string>(state, [](std::int64_t i) { return "com.example.context." + std::to_string(i); });
}
BENCHMARK(copyMapOfStrings)->Apply(entries);

void copyMapOfNumbers(benchmark::State& state)
{
    copyMap<std::uint32_t>(state, [](std::int64_t i) { return static_cast<std::uint32_t>(i); });
}
BENCHMARK(copyMapOfNumbers)->Apply(entries);

}
