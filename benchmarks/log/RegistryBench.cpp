// A logger with 1 to 10,000 modules: how their number affects getInstance() and changes of the module filter.

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

namespace log = com::kor::dal::nim::log;

/** A logger with as many modules as the argument of the benchmark. */
class Registry
{
public:
    explicit Registry(const benchmark::State& state)
    {
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            names.push_back("app.component." + std::to_string(i));
            modules.push_back(&log::Module::getInstance(names.back(), logger));
        }
    }

    log::Write logger;
    std::vector<std::string> names;
    std::vector<log::Module*> modules;
};

/** The first statement after a change of the filter: its module evaluates the filter again. */
void gateAfterFilterChange(benchmark::State& state)
{
    Registry registry(state);
    registry.logger.setModuleFilter("app.*", true);
    log::Module& module = *registry.modules.back();
    bool on = true;
    for (auto _ : state) {
        registry.logger.setModuleFilter("other", on);
        benchmark::DoNotOptimize(module.isSeveritySatisfied(log::Severity_WARNING));
        on = !on;
    }
}

/** A change of the filter and one statement of each module. */
void allGatesAfterFilterChange(benchmark::State& state)
{
    Registry registry(state);
    registry.logger.setModuleFilter("app.*", true);
    bool on = true;
    for (auto _ : state) {
        registry.logger.setModuleFilter("other", on);
        for (log::Module* const module : registry.modules) {
            benchmark::DoNotOptimize(module->isSeveritySatisfied(log::Severity_WARNING));
        }
        on = !on;
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/** Finds existing modules by name, in random order. */
void getInstance(benchmark::State& state)
{
    Registry registry(state);
    std::mt19937 random(1);
    std::shuffle(registry.names.begin(), registry.names.end(), random);
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(&log::Module::getInstance(registry.names[next], registry.logger));
        next = (next + 1) % registry.names.size();
    }
}

BENCHMARK(gateAfterFilterChange)->RangeMultiplier(10)->Range(1, 10000);
BENCHMARK(allGatesAfterFilterChange)->RangeMultiplier(10)->Range(1, 10000);
BENCHMARK(getInstance)->RangeMultiplier(10)->Range(1, 10000);

}
