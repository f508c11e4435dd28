// Records to a file, by the library's logger and its peers, compared with the lower limit of any logger:
// write(2) of the same bytes to a new file in append mode. Each line has been written when its statement
// returns, and has the same length for all loggers.

#include "../Latencies.hpp"
#include "Loggers.hpp"
#include "peers/Limits.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace {

constexpr std::size_t LINE_LENGTH = 160;
constexpr std::size_t ROTATION_SIZE = 10000000;
/** Enough for six rotations. */
constexpr std::int64_t ROTATION_RECORDS = 400000;
/** Records of each thread, of which a thousandth takes longer than the percentile 99.9. */
constexpr std::int64_t TIMED_RECORDS = 20000;

/** Returns the text of a record whose line is `lineLength` bytes long, including prefix and newline. */
template <class Logger>
std::string textFor(std::size_t lineLength, Prefix prefix)
{
    const FreshFile file;
    Logger logger(Output{file.path, prefix});
    // The first record may be preceded by a stream header.
    logger.record("");
    const std::uintmax_t before = std::filesystem::file_size(file.path);
    logger.record("");
    const std::uintmax_t overhead = std::filesystem::file_size(file.path) - before;
    std::string words(lineLength > overhead ? lineLength - overhead : 0, 'x');
    if (overhead == 0) {
        // The logger writes the text verbatim.
        words.back() = '\n';
    }
    return words;
}

/** The text of the records of a repetition, set before its logger is created. */
std::string text;

template <class Logger>
void create(const Output& output, std::size_t lineLength)
{
    text = textFor<Logger>(lineLength, output.prefix);
    Shared<Logger>::create(output);
}

template <class Logger>
void createWithFullPrefix(const benchmark::State&)
{
    create<Logger>(Output(), LINE_LENGTH);
}

template <class Logger>
void createForSize(const benchmark::State& state)
{
    create<Logger>(Output{"", Prefix::SEVERITY}, static_cast<std::size_t>(state.range(0)));
}

template <class Logger>
void createRotating(const benchmark::State&)
{
    create<Logger>(Output{"", Prefix::FULL, ROTATION_SIZE}, LINE_LENGTH);
}

template <class Logger>
void records(benchmark::State& state)
{
    Logger& logger = *Shared<Logger>::logger();
    for (auto _ : state) {
        logger.record(text);
    }
    state.SetItemsProcessed(state.iterations());
}

/** Measures the duration of each statement. */
template <class Logger>
void latencies(benchmark::State& state)
{
    static MergedLatencies merged;
    Logger& logger = *Shared<Logger>::logger();
    Latencies own;
    for (auto _ : state) {
        const std::int64_t start = nanoseconds();
        logger.record(text);
        own.add(nanoseconds() - start);
    }
    merged.report(own, state);
}

BENCHMARK(latenciesOfNothing)->Name("latency/nothing")->Iterations(TIMED_RECORDS)->UseRealTime();

/** Registers records of one size on 1 to 8 threads, and of 20 to 2,000 bytes on one thread. */
template <class Logger>
void registerRecords()
{
    const std::string name = Logger::NAME;
    benchmark::RegisterBenchmark(("record/" + name).c_str(), records<Logger>)
        ->Setup(createWithFullPrefix<Logger>)
        ->Teardown(Shared<Logger>::destroy)
        ->ThreadRange(1, 8)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("latency/" + name).c_str(), latencies<Logger>)
        ->Setup(createWithFullPrefix<Logger>)
        ->Teardown(Shared<Logger>::destroy)
        ->ThreadRange(1, 8)
        ->Iterations(TIMED_RECORDS)
        ->UseRealTime();

    auto* const sizes = benchmark::RegisterBenchmark(("recordOfSize/" + name).c_str(), records<Logger>);
    sizes->Setup(createForSize<Logger>)->Teardown(Shared<Logger>::destroy)->UseRealTime();
    for (const int size : {20, 50, 100, 200, 500, 1000, 2000}) {
        sizes->Arg(size);
    }
}

template <class Logger>
void registerRotation(const std::string& variant, void (*setUp)(const benchmark::State&))
{
    benchmark::RegisterBenchmark(("rotation/" + variant + "/" + Logger::NAME).c_str(), records<Logger>)
        ->Setup(setUp)
        ->Teardown(Shared<Logger>::destroy)
        ->Iterations(ROTATION_RECORDS)
        ->UseRealTime();
}

/** A record without its output: the statement, its header, the prefix and the formatted line. */
void recordWithoutOutput(benchmark::State& state)
{
    namespace log = com::kor::dal::nim::log;
    struct Sink : log::Write
    {
        void log(const com::kor::dal::nim::String& msg) override
        {
            benchmark::DoNotOptimize(msg.data());
        }
        using log::Write::log;
    } sink;
    log::Module module(MODULE_NAME, sink);
    const std::string words = textFor<Dalnim>(LINE_LENGTH, Prefix::FULL);
    for (auto _ : state) {
        NIM_LOG_TO(module, Severity_WARNING) << words;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(recordWithoutOutput);

const bool areRegistered = [] {
    forEachLogger([](auto is) {
        typedef typename decltype(is)::type Logger;
        registerRecords<Logger>();
        if (Logger::ROTATES) {
            registerRotation<Logger>("off", createWithFullPrefix<Logger>);
            registerRotation<Logger>("on", createRotating<Logger>);
        }
    });
    registerRecords<BareWrite>();
    registerRecords<GuardedStream>();
    return true;
}();

}
