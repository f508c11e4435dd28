// A logger with 1 to 10,000 modules: what their number costs those who ask for one, and those who
// change the filter.

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

/** A logger with so many modules. */
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

/** The first statement behind a change of the filter: its module asks anew. */
void gateBehindAFilterChange(benchmark::State& state)
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

/** The same for the statements of all modules. */
void allGatesBehindAFilterChange(benchmark::State& state)
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

/** A module that is there, found by its name, one after the other in no order. */
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

BENCHMARK(gateBehindAFilterChange)->RangeMultiplier(10)->Range(1, 10000);
BENCHMARK(allGatesBehindAFilterChange)->RangeMultiplier(10)->Range(1, 10000);
BENCHMARK(getInstance)->RangeMultiplier(10)->Range(1, 10000);

}
