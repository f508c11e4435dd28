// A record of about 160 bytes on its way to a file, beside the bare system call that no logger can
// do without: write(2) of the same bytes to a fresh file in append mode.

#include <dalnim/log/Header.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace {

namespace log = com::kor::dal::nim::log;

/** A fresh file below the directory for temporary ones, removed with this object. */
class FreshFile
{
public:
    FreshFile()
    {
        char name[] = "/tmp/dalnim-bench-XXXXXX";
        if (mkdtemp(name) == nullptr) {
            std::abort();
        }
        folder = name;
        path = folder + "/bench.log";
    }
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;
    ~FreshFile()
    {
        unlink(path.c_str());
        rmdir(folder.c_str());
    }

    std::string folder;
    std::string path;
};

constexpr char TEXT[] = "disk sda1 of the shelf at the end of row 12 is 97% full";

/** How long a line gets, prefix and newline included. */
std::size_t lineLength()
{
    static const std::size_t length = [] {
        struct Format : log::Write
        {
            std::string line()
            {
                const log::Header header(log::Severity_WARNING, __FILE__, 1000);
                return format(log::Module::DEFAULT_INSTANCE, header) + TEXT + '\n';
            }
        } writer;
        return writer.line().size();
    }();
    return length;
}

/** What the threads of one run share; made by the first of them before the others start to measure. */
std::unique_ptr<FreshFile> file;
std::unique_ptr<log::Write> logger;
std::unique_ptr<log::Module> records;
int descriptor = -1;

void setUpLogger(const benchmark::State&)
{
    file = std::make_unique<FreshFile>();
    logger = std::make_unique<log::Write>();
    logger->setPath(file->path);
    records = std::make_unique<log::Module>("bench.records", *logger);
}

void tearDownLogger(const benchmark::State&)
{
    logger->unregisterModule(*records);
    records.reset();
    logger.reset();
    file.reset();
}

void setUpDescriptor(const benchmark::State&)
{
    file = std::make_unique<FreshFile>();
    descriptor = open(file->path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
}

void tearDownDescriptor(const benchmark::State&)
{
    close(descriptor);
    file.reset();
}

void countBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(lineLength()));
    state.SetItemsProcessed(state.iterations());
}

void bareWrite(benchmark::State& state)
{
    const std::string line(lineLength(), 'x');
    for (auto _ : state) {
        if (write(descriptor, line.data(), line.size()) < 0) {
            state.SkipWithError("write");
        }
    }
    countBytes(state);
}

void record(benchmark::State& state)
{
    for (auto _ : state) {
        NIM_LOG_TO(*records, Severity_WARNING) << TEXT;
    }
    countBytes(state);
}

/** All of a record but the file: the statement, its header, the prefix and the joined line. */
void recordWithoutOutput(benchmark::State& state)
{
    struct Sink : log::Write
    {
        void log(const com::kor::dal::nim::String& msg) override
        {
            benchmark::DoNotOptimize(msg.data());
        }
        using log::Write::log;
    } sink;
    log::Module module("bench.records", sink);
    for (auto _ : state) {
        NIM_LOG_TO(module, Severity_WARNING) << TEXT;
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(bareWrite)->Setup(setUpDescriptor)->Teardown(tearDownDescriptor)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(record)->Setup(setUpLogger)->Teardown(tearDownLogger)->ThreadRange(1, 4)->UseRealTime();
BENCHMARK(recordWithoutOutput);

}
