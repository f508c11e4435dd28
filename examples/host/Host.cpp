#include "Host.hpp"

#include "Failure.hpp"
#include "Report.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::mt::Task;

namespace {

typedef std::chrono::steady_clock Clock;

constexpr std::chrono::milliseconds PROGRESS_INTERVAL(100);
constexpr std::chrono::milliseconds END_INTERVAL(10);
/** How long dropping may take, once the time for an orderly end is over. */
constexpr std::chrono::seconds DROP_LIMIT(1);

/** Runs log statements of the main thread: one that fails must not end the run out of order. */
template <class Statements>
void guarded(Statements statements)
{
    try {
        statements();
    } catch (const std::exception& exc) {
        std::cerr << "nimhost: cannot log: " << exc.what() << std::endl;
    }
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
    : options(given), signals(counters), configuration(options.config, Configuration::AT_START),
      adapters(loadAdapters()), plugins(configuration), monitor(counters, stop),
      monitorThread(monitor, false, "monitor"), endLimit(configuration.endLimit())
{
    stop.requestsLeft = options.records != 0 ? static_cast<std::int64_t>(options.records)
                                             : std::numeric_limits<std::int64_t>::max();
    requireOwnPage(configuration.logPath());
    configuration.check(sourceNames());
    configuration.configureLog();
    // That of a stream which an adapter brings is known now.
    requireOwnPage(::com_kor_dal_nim_log_control.getPath());
    logWatch.expect(configuration);
    logWarnings(configuration.warnings());
    makePool();
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
        } catch (...) {
            throw ConfigurationError("adapter " + name + ": " + currentFailure());
        }
    }
    return loaded;
}

void Host::makePool()
{
    const PoolSettings settings = configuration.pool();
    try {
        pool =
            std::make_unique<nim::mt::ThreadPool>("requests", settings.threads, 0, 0, 0, 0, settings.pending);
    } catch (...) {
        throw ConfigurationError(options.config + ": cannot start the workers, pool/threads is "
                                 + std::to_string(settings.threads) + ": " + currentFailure());
    }
}

std::vector<std::string> Host::sourceNames() const
{
    std::vector<std::string> names;
    for (unsigned int i = 0; i < options.threads; ++i) {
        names.push_back("source-" + std::to_string(i));
    }
    return names;
}

void Host::makeSources()
{
    for (const std::string& name : sourceNames()) {
        Station station;
        station.source = std::make_unique<Source>(name, configuration.source(name), *pool, counters, stop);
        station.thread = std::make_unique<nim::mt::Thread>(*station.source, true, name.c_str());
        stations.push_back(std::move(station));
    }
}

void Host::makeReader()
{
    results = std::make_unique<Results>(STDOUT_FILENO, counters.resultsLost);
    reader = std::make_unique<DocumentReader>(options.documents, plugins, *results, *pool, counters, stop);
    Station station;
    station.thread = std::make_unique<nim::mt::Thread>(*reader, true, "reader");
    stations.push_back(std::move(station));
}

/** The page replaces what is there: it must not be the log, or a name that a rotation gives to an old file.
 */
void Host::requireOwnPage(const std::string& log) const
{
    if (options.status.empty() || log.empty()) {
        return;
    }
    namespace fs = std::filesystem;
    const std::string live = fs::weakly_canonical(log);
    for (const std::string& written : {options.status, options.status + ".new"}) {
        const std::string page = fs::weakly_canonical(written);
        if (page == live || page.rfind(live + ".", 0) == 0) {
            throw ConfigurationError("--status " + options.status + " is a file of the log, " + log);
        }
    }
}

int Host::run()
{
    const bool started = start();
    if (started) {
        waitForEnd();
        signals.hostEnds();
        guarded(
            [&] { NIM_LOG(Severity_NOTICE) << "nimhost ends after " << seconds() << " s: " << endReason(); });
    }
    shutDown();
    if (started) {
        report();
    }
    writeLastStatus();
    return exitStatus();
}

/** Returns false, and says why, if a thread cannot be started. */
bool Host::start()
{
    NIM_LOG(Severity_NOTICE) << "nimhost starts with " << static_cast<std::size_t>(options.threads)
                             << " sources";
    began = Clock::now();
    if (results) {
        results->begin();
    }
    signals.hostRuns(std::chrono::seconds(options.seconds));
    try {
        startThread(monitorThread);
        monitorStarted = true;
        for (Station& station : stations) {
            startThread(*station.thread);
            station.started = true;
        }
    } catch (const std::exception& exc) {
        complain(exc.what(), 2);
        return false;
    }
    return true;
}

void Host::startThread(nim::mt::Thread& thread)
{
    try {
        thread.start();
    } catch (...) {
        throw std::runtime_error("cannot start the thread " + thread.name() + ": " + currentFailure());
    }
}

/** Writes one line to standard error and to the log; the exit status becomes this, if none is higher. */
void Host::complain(const std::string& text, int exitStatus)
{
    status = std::max(status, exitStatus);
    std::cerr << "nimhost: " << text << std::endl;
    guarded([&] { NIM_LOG(Severity_ERROR) << text; });
}

bool Host::atEnd() const
{
    return ending || (options.seconds != 0 && seconds() >= options.seconds) || isAllAnswered()
           || (results && results->failure() != 0);
}

const char* Host::endReason() const
{
    return results && results->failure() != 0 ? "its results cannot be written"
           : ending                           ? "it was told to"
           : isAllAnswered()                  ? "nothing is left to be done"
                                              : "its time is over";
}

bool Host::isAllAnswered() const
{
    const bool allRead = std::all_of(stations.begin(), stations.end(), [](const Station& station) {
        return !station.started || station.thread->status() == Task::TSF_FINISHED;
    });
    return allRead && counters.requestsOpen == 0;
}

void Host::waitForEnd()
{
    const bool terminal = !results && isatty(STDOUT_FILENO) != 0;
    while (!atEnd()) {
        const SignalWatch::Arrived arrived = signals.take(PROGRESS_INTERVAL);
        if (terminal) {
            showProgress(std::cout, seconds(), counters, traces.rotations());
        }
        if (recorder) {
            recorder->look(seconds());
        }
        guarded([&] { logWatch.look(); });
        handleSignals(arrived);
    }
    if (terminal) {
        clearProgress(std::cout);
    }
}

void Host::handleSignals(const SignalWatch::Arrived& arrived)
{
    if (arrived.reload) {
        readConfigurationAgain();
    }
    if (arrived.end != 0) {
        guarded([&] { NIM_LOG(Severity_NOTICE) << "nimhost was told to end by signal " << arrived.end; });
        if (stop.now) {
            drop();
        }
        ending = true;
    }
}

void Host::readConfigurationAgain()
{
    // A mistake in the new configuration changes nothing: the old one stays in effect as a whole, and the
    // exit status shows it.
    try {
        const Configuration fresh(options.config, Configuration::WHILE_RUNNING);
        requireOwnPage(fresh.logPath());
        fresh.check(sourceNames());
        applyConfiguration(fresh);
        ++counters.configurationsRead;
    } catch (...) {
        ++counters.configurationsRefused;
        keepConfiguration(currentFailure());
    }
}

void Host::applyConfiguration(const Configuration& fresh)
{
    fresh.configureLog();
    logWatch.expect(fresh);
    logWarnings(fresh.warnings());
    endLimit = fresh.endLimit();
    const std::vector<std::string> waiting = plugins.configure(fresh);
    for (const Station& station : stations) {
        if (station.source) {
            station.source->configure(fresh.source(station.source->name()));
        }
    }
    for (const std::string& name : waiting) {
        NIM_LOG(Severity_NOTICE) << "the new settings of the plug-in " << name
                                 << " take effect when it is loaded again";
    }
    const std::vector<RestartSetting> ignored = configuration.restartSettings(fresh, sourceNames());
    for (const RestartSetting& setting : ignored) {
        NIM_LOG(Severity_WARNING) << setting.name << " needs a restart: " << setting.inEffect
                                  << " stays in effect, not " << setting.wanted;
    }
    if (ignored.empty()) {
        NIM_LOG(Severity_NOTICE) << "nimhost has read " << options.config << " again";
    } else {
        NIM_LOG(Severity_NOTICE) << "nimhost has read " << options.config << " again, but for "
                                 << ignored.size() << " settings that need a restart";
    }
}

void Host::keepConfiguration(const std::string& why)
{
    status = 2;
    std::cerr << "nimhost: " << why << std::endl;
    guarded([&] {
        logWatch.reopenIfRemoved();
        NIM_LOG_TRAPPED(Severity_ERROR, std::runtime_error(why), "nimhost keeps its configuration");
    });
}

/** Ends in the order in which the work flows, so that nothing that was read is lost. */
void Host::shutDown()
{
    stop.now = true;
    if (!awaitAnswers()) {
        endUnanswered();
    }
    joinThreads();
    pool->shutdown();
    signals.noteProgress();
    dropRest();
    plugins.clear();
    // A log that goes to an adapter's file keeps that file.
    adapters.clear();
    signals.noteProgress();
    joinMonitor();
    guarded([&] {
        NIM_LOG(Severity_NOTICE) << "nimhost is down: sources stopped, queues complete, pool " << pool->name()
                                 << " shut down after " << counters.tasksRun << " tasks";
    });
}

/** Returns false if the time for an orderly end is over and threads or requests are not at their end. */
bool Host::awaitAnswers()
{
    const Clock::time_point endBegan = Clock::now();
    while (!isAllAnswered()) {
        handleSignals(signals.take(END_INTERVAL));
        if (recorder) {
            recorder->look(seconds());
        }
        if (endLimit == std::chrono::seconds::zero()) {
            continue;
        }
        const Clock::duration passed = Clock::now() - endBegan;
        if (passed >= endLimit + DROP_LIMIT) {
            return false;
        }
        if (passed >= endLimit) {
            drop();
        }
    }
    return true;
}

/** Drops the requests that no worker has begun, and the results that nobody reads. */
void Host::drop()
{
    stop.drop = true;
    if (results) {
        results->stopWaiting();
    }
}

/**
 * Says what is without an answer, and ends the process: there is no way to end the threads that are busy
 * with it, and nothing that they use may be destroyed.
 */
void Host::endUnanswered()
{
    complain(std::to_string(counters.requestsOpen) + " requests have no answer "
                 + std::to_string(endLimit.count()) + " seconds after the end",
             1);
    counters.requestsDropped += static_cast<std::uint64_t>(std::max<std::int64_t>(counters.requestsOpen, 0));
    if (results) {
        results->dropOpen();
        results->end();
    }
    report();
    writeLastStatus();
    std::cout.flush();
    std::_Exit(exitStatus());
}

void Host::joinThreads()
{
    for (Station& station : stations) {
        signals.noteProgress();
        // A thread that broke down hands its exception over; it stays the thread's.
        const std::exception* const error = station.started ? station.thread->join() : nullptr;
        if (station.source) {
            station.source->complete();
        }
        if (error != nullptr) {
            ++(station.source ? counters.sourcesBroken : counters.documentsRefused);
            guarded(
                [&] { NIM_LOG_TRAPPED(Severity_ERROR, *error, station.thread->name() + " ended early"); });
        }
    }
}

void Host::joinMonitor()
{
    while (monitorStarted && monitorThread.status() != Task::TSF_FINISHED) {
        monitorThread.waitForStateChange(1000);
    }
}

void Host::dropRest()
{
    for (const Station& station : stations) {
        if (station.source) {
            station.source->dropLeft();
        }
    }
    if (results) {
        results->dropOpen();
        results->end();
    }
}

/** The reasons of a status that is not 0, and the table. */
void Host::report()
{
    if (results && results->failure() != 0) {
        complain("the results cannot be written: " + nim::sys::sys_err_string(results->failure()), 1);
    }
    if (counters.requestsDropped != 0 || counters.documentsDropped != 0) {
        complain(std::to_string(counters.requestsDropped) + " requests and "
                     + std::to_string(counters.documentsDropped) + " documents were dropped",
                 1);
    }
    // The results have standard output for themselves.
    std::ostream& os = results ? std::cerr : std::cout;
    showTable(os, Summary(seconds(), counters, traces.rotations()));
    if (!os.flush()) {
        complain("the table cannot be written", 1);
    }
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
        complain(exc.what(), 1);
    }
}

double Host::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - began).count();
}

}
