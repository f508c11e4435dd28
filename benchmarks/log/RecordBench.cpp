// Records on their way to a file, by the library's logger and its peers, beside what no logger can do
// without: write(2) of the same bytes to a fresh file in append mode. Every line has reached the
// kernel when its statement returns, and is of the same length for all.

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

/** The text with which a line of this logger is so many bytes long, with its prefix and newline. */
template <class Logger>
std::string textFor(std::size_t lineLength, Prefix prefix)
{
    const FreshFile file;
    Logger logger(Output{file.path, prefix});
    // The first record may come behind a heading of the file.
    logger.record("");
    const std::uintmax_t before = std::filesystem::file_size(file.path);
    logger.record("");
    const std::uintmax_t overhead = std::filesystem::file_size(file.path) - before;
    std::string words(lineLength > overhead ? lineLength - overhead : 0, 'x');
    if (overhead == 0) {
        // It writes what it is given.
        words.back() = '\n';
    }
    return words;
}

/** The text of the records of a repetition, which stands before its logger is made. */
std::string text;

template <class Logger>
void make(const Output& output, std::size_t lineLength)
{
    text = textFor<Logger>(lineLength, output.prefix);
    Shared<Logger>::make(output);
}

template <class Logger>
void makeFull(const benchmark::State&)
{
    make<Logger>(Output(), LINE_LENGTH);
}

template <class Logger>
void makeOfSize(const benchmark::State& state)
{
    make<Logger>(Output{"", Prefix::SEVERITY}, static_cast<std::size_t>(state.range(0)));
}

template <class Logger>
void makeRotating(const benchmark::State&)
{
    make<Logger>(Output{"", Prefix::FULL, ROTATION_SIZE}, LINE_LENGTH);
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

/** The same records by 1 to 8 threads, and by one in sizes of 20 to 2,000 bytes. */
template <class Logger>
void registerRecords()
{
    const std::string name = Logger::NAME;
    benchmark::RegisterBenchmark(("record/" + name).c_str(), records<Logger>)
        ->Setup(makeFull<Logger>)
        ->Teardown(Shared<Logger>::drop)
        ->ThreadRange(1, 8)
        ->UseRealTime();

    auto* const sizes = benchmark::RegisterBenchmark(("recordOfSize/" + name).c_str(), records<Logger>);
    sizes->Setup(makeOfSize<Logger>)->Teardown(Shared<Logger>::drop)->UseRealTime();
    for (const int size : {20, 50, 100, 200, 500, 1000, 2000}) {
        sizes->Arg(size);
    }
}

template <class Logger>
void registerRotation(const std::string& variant, void (*setUp)(const benchmark::State&))
{
    benchmark::RegisterBenchmark(("rotation/" + variant + "/" + Logger::NAME).c_str(), records<Logger>)
        ->Setup(setUp)
        ->Teardown(Shared<Logger>::drop)
        ->Iterations(ROTATION_RECORDS)
        ->UseRealTime();
}

/** All of a record but the file: the statement, its header, the prefix and the joined line. */
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
            registerRotation<Logger>("off", makeFull<Logger>);
            registerRotation<Logger>("on", makeRotating<Logger>);
        }
    });
    registerRecords<BareWrite>();
    registerRecords<GuardedStream>();
    return true;
}();

}
