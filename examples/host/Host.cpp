#include "Host.hpp"

#include "Report.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <iostream>
#include <limits>
#include <sstream>
#include <unistd.h>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::mt::Task;

namespace {

constexpr long PROGRESS_NANOSECONDS = 100000000;

sigset_t makeSet(std::initializer_list<int> numbers)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers) {
        sigaddset(&signals, number);
    }
    return signals;
}

/** Only the thread that waits for them gets these: the threads that it starts inherit the block. */
sigset_t blockSignals()
{
    const sigset_t signals = makeSet({SIGHUP, SIGINT, SIGTERM});
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/** From now on a signal to end does so at once. */
void unblockEndSignals()
{
    const sigset_t signals = makeSet({SIGINT, SIGTERM});
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void logWarnings(const std::string& warnings)
{
    std::istringstream lines(warnings);
    for (std::string line; std::getline(lines, line);) {
        NIM_LOG(Severity_WARNING) << line;
    }
}

}

Host::Host(const Options& given)
    : options(given), signals(blockSignals()), configuration(options.config), adapters(loadAdapters()),
      plugins(configuration), monitor(counters, stop), monitorThread(monitor, false, "monitor")
{
    stop.requestsLeft = options.records != 0 ? static_cast<std::int64_t>(options.records)
                                             : std::numeric_limits<std::int64_t>::max();
    configuration.configureLog();
    logWarnings(configuration.warnings());
    const PoolSettings settings = configuration.pool();
    pool = std::make_unique<nim::mt::ThreadPool>("requests", settings.threads, 0, 0, 0, 0, settings.pending);
    makeSources();
    if (!options.documents.empty()) {
        makeReader();
    }
    if (!options.status.empty()) {
        recorder = std::make_unique<StatusRecorder>(options.status, counters, traces);
    }
}

std::vector<Plugin> Host::loadAdapters() const
{
    std::vector<Plugin> loaded;
    for (const std::string& name : configuration.adapters()) {
        const PluginSettings settings = configuration.plugin(name);
        try {
            loaded.emplace_back(settings.library, *settings.settings);
        } catch (const std::exception& exc) {
            throw ConfigurationError("adapter " + name + ": " + exc.what());
        }
    }
    return loaded;
}

void Host::makeSources()
{
    for (unsigned int i = 0; i < options.threads; ++i) {
        const std::string name = "source-" + std::to_string(i);
        auto source = std::make_unique<Source>(name, configuration.source(name), *pool, counters, stop);
        auto thread = std::make_unique<nim::mt::Thread>(*source, true, name.c_str());
        stations.push_back({std::move(source), std::move(thread)});
    }
}

void Host::makeReader()
{
    results = std::make_unique<Results>(std::cout);
    reader = std::make_unique<DocumentReader>(options.documents, plugins, *results, *pool, counters, stop);
    readerThread = std::make_unique<nim::mt::Thread>(*reader, true, "reader");
}

int Host::run()
{
    start();
    waitForEnd();
    shutDown();
    // The results have standard output for themselves.
    showTable(results ? std::cerr : std::cout, Summary(seconds(), counters, traces.rotations()));
    writeLastStatus();
    return exitStatus();
}

int Host::exitStatus() const
{
    const bool failed = results && (counters.documentsRefused != 0 || counters.tasksFailed != 0);
    return status != 0 ? status : failed ? 1 : 0;
}

void Host::writeLastStatus()
{
    if (!recorder) {
        return;
    }
    try {
        recorder->end(seconds());
    } catch (const std::exception& exc) {
        status = std::max(status, 1);
        std::cerr << "nimhost: " << exc.what() << std::endl;
    }
}

double Host::seconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
}

void Host::start()
{
    NIM_LOG(Severity_NOTICE) << "nimhost starts with " << stations.size() << " sources";
    began = std::chrono::steady_clock::now();
    monitorThread.start();
    for (const Station& station : stations) {
        station.thread->start();
    }
    if (readerThread) {
        readerThread->start();
    }
}

bool Host::atEnd() const
{
    return ending || (options.seconds != 0 && seconds() >= options.seconds) || isAllRead();
}

bool Host::isAllRead() const
{
    const bool sourcesFinished = std::all_of(stations.begin(), stations.end(), [](const Station& station) {
        return station.thread->status() == Task::TSF_FINISHED;
    });
    return sourcesFinished && (!readerThread || readerThread->status() == Task::TSF_FINISHED);
}

void Host::waitForEnd()
{
    const bool terminal = !results && isatty(STDOUT_FILENO) != 0;
    while (!atEnd()) {
        const timespec interval = {0, PROGRESS_NANOSECONDS};
        const int signal = sigtimedwait(&signals, nullptr, &interval);
        if (terminal) {
            showProgress(std::cout, seconds(), counters, traces.rotations());
        }
        if (recorder) {
            recorder->look(seconds());
        }
        if (signal != -1) {
            handleSignal(signal);
        }
    }
    if (terminal) {
        clearProgress(std::cout);
    }
}

void Host::handleSignal(int signal)
{
    if (signal == SIGHUP) {
        readConfigurationAgain();
    } else {
        NIM_LOG(Severity_NOTICE) << "nimhost was told to end by signal " << signal;
        ending = true;
        unblockEndSignals();
    }
}

void Host::readConfigurationAgain()
{
    // A mistake in the new configuration ends nothing: the log that is open keeps its records, and
    // the exit status tells of it.
    try {
        const Configuration fresh(options.config);
        std::vector<SourceSettings> settings;
        for (const Station& station : stations) {
            settings.push_back(fresh.source(station.source->name()));
        }
        fresh.configureLog();
        logWarnings(fresh.warnings());
        plugins.configure(fresh);
        for (std::size_t i = 0; i < stations.size(); ++i) {
            stations[i].source->configure(settings[i]);
        }
        NIM_LOG(Severity_NOTICE) << "nimhost has read " << options.config << " again";
    } catch (const ConfigurationError& exc) {
        status = 2;
        std::cerr << "nimhost: " << exc.what() << std::endl;
        keepConfiguration(exc);
    }
}

void Host::keepConfiguration(const std::exception& why)
{
    try {
        NIM_LOG_TRAPPED(Severity_ERROR, why, "nimhost keeps its configuration");
    } catch (const std::exception& exc) {
        // The file that was open is closed, and the new one cannot be opened: not even by asking for
        // the stream of the log, as a change of it by name does.
        nim::log::GET_NIM_LOG_LOGGER_VAR().setStream(std::cerr);
        std::cerr << "nimhost: logs to standard error: " << exc.what() << std::endl;
    }
}

/** Ends in the order in which the work flows, so that nothing that was read is lost. */
void Host::shutDown()
{
    stop.now = true;
    joinSources();
    joinReader();
    for (const Station& station : stations) {
        station.source->complete();
    }
    pool->shutdown();
    if (results) {
        results->end();
    }
    plugins.clear();
    // A log that goes to an adapter's file keeps that file.
    adapters.clear();
    while (monitorThread.status() != Task::TSF_FINISHED) {
        monitorThread.waitForStateChange(1000);
    }
    NIM_LOG(Severity_NOTICE) << "nimhost is down: sources stopped, queues complete, pool " << pool->name()
                             << " shut down after " << counters.tasksRun << " tasks";
}

void Host::joinSources()
{
    for (const Station& station : stations) {
        // A source that broke down hands its exception over; it stays the thread's.
        if (const std::exception* const error = station.thread->join()) {
            ++counters.sourcesBroken;
            NIM_LOG_TRAPPED(Severity_ERROR, *error, station.source->name() + " ended early");
        }
    }
}

void Host::joinReader()
{
    if (!readerThread) {
        return;
    }
    if (const std::exception* const error = readerThread->join()) {
        ++counters.documentsRefused;
        NIM_LOG_TRAPPED(Severity_ERROR, *error, "the reader ended early");
    }
}

}
