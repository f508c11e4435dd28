// The cost of a disabled log statement, in the library and its peers, and of the check of an enabled one.

#include "Loggers.hpp"

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <benchmark/benchmark.h>

#include <string>

namespace {

namespace log = com::kor::dal::nim::log;

/** A logger whose module filter contains some entries, none of which matches "silent". */
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

/** Constructed by the main thread before it starts others. */
Gates gates;

void statementRefusedByFilter(benchmark::State& state)
{
    log::Module& module = gates.silent;
    for (auto _ : state) {
        NIM_LOG_TO(module, Severity_WARNING) << expensiveText();
    }
}

void gatePassedByFilter(benchmark::State& state)
{
    log::Module& module = gates.passing;
    for (auto _ : state) {
        benchmark::DoNotOptimize(module.isSeveritySatisfied(log::Severity_WARNING));
    }
}

void gatePassedByError(benchmark::State& state)
{
    log::Module& module = gates.silent;
    for (auto _ : state) {
        benchmark::DoNotOptimize(module.isSeveritySatisfied(log::Severity_ERROR));
    }
}

BENCHMARK(statementRefusedByFilter)->ThreadRange(1, 8);
BENCHMARK(gatePassedByFilter)->ThreadRange(1, 8);
BENCHMARK(gatePassedByError)->ThreadRange(1, 8);

/** A statement that is disabled by its severity, on a logger with a file. */
template <class Logger>
void statementRefused(benchmark::State& state)
{
    Logger& logger = *Shared<Logger>::logger();
    for (auto _ : state) {
        logger.refuse();
        // Another thread may change the threshold, so the compiler must not hoist the check out of the loop.
        benchmark::ClobberMemory();
    }
}

const bool areRegistered = [] {
    forEachLogger([](auto is) {
        typedef typename decltype(is)::type Logger;
        benchmark::RegisterBenchmark((std::string("refused/") + Logger::NAME).c_str(),
                                     statementRefused<Logger>)
            ->Setup([](const benchmark::State&) { Shared<Logger>::create(Output()); })
            ->Teardown(Shared<Logger>::destroy)
            ->ThreadRange(1, 8);
    });
    return true;
}();

}
