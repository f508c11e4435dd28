// What a log statement costs that produces no record, and what the gate costs that lets one through.

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <benchmark/benchmark.h>

#include <string>

namespace {

namespace log = com::kor::dal::nim::log;

/** A logger whose filter has some entries, none of which names "silent". */
struct Gates
{
    Gates()
        : passing(log::Module::getInstance("bench.passing", logger)),
          silent(log::Module::getInstance("silent", logger))
    {
        for (const char* const entry : {"com.kor.dal.*", "app.core", "app.net.*", "bench.*"}) {
            logger.setModuleFilter(entry, true);
        }
    }

    log::Write logger;
    log::Module& passing;
    log::Module& silent;
};

Gates& gates()
{
    static Gates instance;
    return instance;
}

/** Costs more than everything else here, if it is ever evaluated. */
std::string expensiveText()
{
    return std::string(10000, 'x');
}

void statementRefusedBySeverity(benchmark::State& state)
{
    log::Module& module = gates().passing;
    for (auto _ : state) {
        NIM_LOG_TO(module, Severity_DEBUG) << expensiveText();
    }
}

void statementRefusedByFilter(benchmark::State& state)
{
    log::Module& module = gates().silent;
    for (auto _ : state) {
        NIM_LOG_TO(module, Severity_WARNING) << expensiveText();
    }
}

void gatePassedByFilter(benchmark::State& state)
{
    log::Module& module = gates().passing;
    for (auto _ : state) {
        benchmark::DoNotOptimize(module.isSeveritySatisfied(log::Severity_WARNING));
    }
}

void gatePassedByError(benchmark::State& state)
{
    log::Module& module = gates().silent;
    for (auto _ : state) {
        benchmark::DoNotOptimize(module.isSeveritySatisfied(log::Severity_ERROR));
    }
}

/** The first statement behind a change of the filter: the module asks it anew. */
void gateBehindAChangeOfTheFilter(benchmark::State& state)
{
    log::Write& logger = gates().logger;
    log::Module& module = gates().passing;
    bool on = true;
    for (auto _ : state) {
        logger.setModuleFilter("other", on);
        benchmark::DoNotOptimize(module.isSeveritySatisfied(log::Severity_WARNING));
        on = !on;
    }
}

BENCHMARK(statementRefusedBySeverity)->ThreadRange(1, 4);
BENCHMARK(statementRefusedByFilter)->ThreadRange(1, 4);
BENCHMARK(gatePassedByFilter)->ThreadRange(1, 4);
BENCHMARK(gatePassedByError)->ThreadRange(1, 4);
BENCHMARK(gateBehindAChangeOfTheFilter);

}
