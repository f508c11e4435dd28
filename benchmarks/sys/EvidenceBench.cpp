// What the means of finding errors cost: operations with all of them, compared with the same without any.
// They cannot be disabled again, so that each measurement runs in a child of its own.

#include "../log/FreshFile.hpp"

/** Instead of the path of this file, so that the length of lines does not depend on the source directory. */
#define NIM_LOG_FILE "sys/Evidence"

#include <dalnim/log/Field.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statistics.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/mt/Watchdog.hpp>
#include <dalnim/sys/CrashReport.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/type/ContextStatistics.hpp>

#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace com::kor::dal::nim;

typedef std::chrono::steady_clock Clock;

constexpr unsigned int RECORDS = 20000;
constexpr unsigned int STATEMENTS = 5000000;
constexpr unsigned int TRACKS = 2000000;
constexpr unsigned int TASKS = 20000;

class EmptyTask : public mt::Task
{
public:
    EmptyTask() : Task("empty") {}
    void run() override {}
};

/** A program that has asked for everything, or for nothing. */
class Program
{
public:
    explicit Program(bool asksForAll) : hasAll(asksForAll)
    {
        if (hasAll) {
            log::Statistics::enable();
            type::ContextStatistics::enable();
            sys::ThreadReport::install();
            sys::CrashReport::install();
            logger.setTimeFormat(log::TimeFormat_UTC_US);
            // More than can be written, so that no record is held back.
            logger.setModuleLimits({{"bench.*", 1000000, 1000000, log::Severity_WARNING}});
            watchdog.setTaskLimit(60000);
            watchdog.setQueueLimit(60000);
            watchdog.setTrackLimit(60000);
            watchdogThread.start();
        }
        logger.setPath(file.path);
    }

    void writeRecords()
    {
        for (unsigned int i = 0; i < RECORDS; ++i) {
            if (hasAll) {
                NIM_LOG_TO(module, Severity_WARNING)
                    << "a record of a server" << log::field("user", i) << log::field("state", "active");
            } else {
                NIM_LOG_TO(module, Severity_WARNING) << "a record of a server";
            }
        }
    }

    void refuseStatements()
    {
        for (unsigned int i = 0; i < STATEMENTS; ++i) {
            NIM_LOG_TO(module, Severity_DEBUG) << std::string(1000, 'x');
            // Another thread may change the threshold.
            benchmark::ClobberMemory();
        }
    }

    static void enterTracks()
    {
        for (unsigned int i = 0; i < TRACKS; ++i) {
            const sys::StackTrack track("enterTracks()", "Bench", "com.kor.dal.nim", __LINE__);
            benchmark::DoNotOptimize(&track);
        }
    }

    void runTasks()
    {
        auto tasks = std::make_unique<std::vector<EmptyTask>>(TASKS);
        mt::ThreadPool pool(nullptr, 2, 0, 0, 0, 0, TASKS);
        if (hasAll) {
            pool.collectStatistics();
            pool.setKernelNames();
            watchdog.watch(pool);
        }
        for (EmptyTask& task : *tasks) {
            pool.add(task);
        }
        pool.shutdown(true);
    }

    void removeDirectory() const
    {
        std::error_code ignored;
        std::filesystem::remove_all(file.directory, ignored);
    }

private:
    const bool hasAll;
    const FreshFile file;
    log::Write logger;
    log::Module& module = log::Module::getInstance("bench.evidence", logger);
    mt::Watchdog watchdog{100};
    mt::Thread watchdogThread{watchdog, false, "watchdog"};
};

/** Measures an operation in a child. Returns the time in seconds; a negative number if it fails. */
template <class Operation>
double measure(bool hasAll, Operation operation)
{
    int ends[2];
    if (pipe(ends) != 0) {
        return -1;
    }
    const pid_t child = fork();
    if (child == -1) {
        return -1;
    }
    if (child == 0) {
        // Not destroyed, since its watchdog runs until the process ends.
        Program* const program = std::make_unique<Program>(hasAll).release();
        const Clock::time_point begin = Clock::now();
        operation(*program);
        const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
        const bool isWritten = write(ends[1], &seconds, sizeof seconds) == sizeof seconds;
        program->removeDirectory();
        _exit(isWritten ? 0 : 1);
    }
    close(ends[1]);
    double seconds = -1;
    const bool isRead = read(ends[0], &seconds, sizeof seconds) == sizeof seconds;
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return isRead && status == 0 ? seconds : -1;
}

template <class Operation>
void registerPair(const char* name, std::int64_t count, Operation operation)
{
    for (const bool hasAll : {false, true}) {
        benchmark::RegisterBenchmark((std::string(name) + (hasAll ? "/all" : "/none")).c_str(),
                                     [=](benchmark::State& state) {
                                         for (auto _ : state) {
                                             const double seconds = measure(hasAll, operation);
                                             if (seconds < 0) {
                                                 state.SkipWithError("the child has failed");
                                                 break;
                                             }
                                             state.SetIterationTime(seconds);
                                         }
                                         state.SetItemsProcessed(state.iterations() * count);
                                     })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
}

const bool areRegistered = [] {
    registerPair("record", RECORDS, [](Program& program) { program.writeRecords(); });
    registerPair("refused", STATEMENTS, [](Program& program) { program.refuseStatements(); });
    registerPair("track", TRACKS, [](Program&) { Program::enterTracks(); });
    registerPair("task", TASKS, [](Program& program) { program.runTasks(); });
    return true;
}();

}
