#include "Host.hpp"

#include "Failure.hpp"
#include "Report.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>
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
/** Time limit for dropping requests after the time for an orderly shutdown has passed. */
constexpr std::chrono::seconds DROP_LIMIT(1);
/** Not in use: the monitor calls check() itself. */
constexpr unsigned int WATCHDOG_PERIOD_MS = 1000;

/** Runs log statements. A failed statement must not interrupt the run or its shutdown. */
template <class Statements>
void logSafely(Statements statements)
{
    try {
        statements();
    } catch (const std::exception& exc) {
        writeError({"cannot log: ", exc.what()});
    }
}

/**
 * Logs an exception that has left a task. The tasks of the host catch theirs; plug-ins may add tasks of their
 * own.
 */
void logTaskException(const Task* task, const std::exception* known, const std::exception_ptr& exception)
{
    logSafely([&] {
        const std::string text = (task != nullptr ? task->name() : "a task") + " ended by an exception";
        if (known != nullptr) {
            NIM_LOG_TRAPPED(Severity_ERROR, *known, text);
            return;
        }
        std::string what;
        try {
            std::rethrow_exception(exception);
        } catch (...) {
            what = currentFailure();
        }
        NIM_LOG_TRAPPED(Severity_ERROR, std::runtime_error(what), text);
    });
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
    : options(given), serviceManager(counters), signals(counters),
      configuration(options.config, Configuration::AT_START), adapters(loadAdapters()),
      plugins(configuration), watchdog(WATCHDOG_PERIOD_MS), monitor(counters, stop, watchdog),
      monitorThread(monitor, false, "monitor"), endLimit(configuration.endLimit())
{
    stop.requestsLeft = options.records != 0 ? static_cast<std::int64_t>(options.records)
                                             : std::numeric_limits<std::int64_t>::max();
    checkFilePaths(configuration.logPath());
    configuration.check(sourceNames());
    if (!options.metrics.empty()) {
        // Before the first record and, except for those of this thread and the next, the first context.
        nim::log::Statistics::enable();
        nim::type::ContextStatistics::enable();
    }
    configuration.configureLog();
    // Only now is the path known of a stream that an adapter provides.
    checkFilePaths(::com_kor_dal_nim_log_control.getPath());
    logWatch.setConfiguration(configuration);
    logWarnings(configuration.warnings());
    nim::sys::ThreadReport::installSignal(SIGUSR2);
    nim::sys::CrashReport::install();
    makePool();
    makeSources();
    if (!options.documents.empty()) {
        makeReader();
    }
    if (!options.status.empty()) {
        recorder = std::make_unique<StatusRecorder>(options.status, counters, traces);
    }
    if (!options.metrics.empty()) {
        // Before the first task.
        pool->collectStatistics();
        metrics = std::make_unique<MetricsFile>(options.metrics, counters, *pool);
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
    pool->setExceptionHandler(logTaskException);
    pool->collectStatistics();
    pool->setKernelNames();
    watchdog.watch(*pool);
    setStuckLimit(configuration.stuckLimit());
}

/** Sets the time after which a request, or a queue that does not move, is logged. */
void Host::setStuckLimit(std::chrono::milliseconds limit)
{
    const auto ms = static_cast<unsigned int>(
        std::min<std::chrono::milliseconds::rep>(limit.count(), std::numeric_limits<unsigned int>::max()));
    watchdog.setTaskLimit(ms);
    watchdog.setQueueLimit(ms);
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
        HostThread hostThread;
        hostThread.source = std::make_unique<Source>(name, configuration.source(name), *pool, counters, stop);
        hostThread.thread = std::make_unique<nim::mt::Thread>(*hostThread.source, true, name.c_str());
        hostThread.thread->setKernelName();
        threads.push_back(std::move(hostThread));
    }
}

void Host::makeReader()
{
    results = std::make_unique<Results>(STDOUT_FILENO, counters.resultsNotWritten);
    reader = std::make_unique<DocumentReader>(options.documents, plugins, *results, *pool, counters, stop);
    HostThread hostThread;
    hostThread.thread = std::make_unique<nim::mt::Thread>(*reader, true, "reader");
    hostThread.thread->setKernelName();
    threads.push_back(std::move(hostThread));
}

/** The page and the metrics replace their files. */
void Host::checkFilePaths(const std::string& log) const
{
    checkFilePath("--status", options.status, log);
    checkFilePath("--metrics", options.metrics, log);
}

/** A file that is replaced must be neither the log nor a possible rotated file. */
void Host::checkFilePath(const char* option, const std::string& file, const std::string& log) const
{
    if (file.empty() || log.empty()) {
        return;
    }
    namespace fs = std::filesystem;
    const std::string live = fs::weakly_canonical(log);
    for (const std::string& written : {file, file + ".new"}) {
        const std::string replaced = fs::weakly_canonical(written);
        if (replaced == live || replaced.rfind(live + ".", 0) == 0) {
            throw ConfigurationError(std::string(option) + ' ' + file + " must not be a file of the log, "
                                     + log);
        }
    }
}

int Host::run()
{
    const bool started = start();
    if (started) {
        waitForEnd();
        signals.endRun();
        serviceManager.reportStopping(std::string("Ends: ") + endReason());
        logSafely(
            [&] { NIM_LOG(Severity_NOTICE) << "nimhost ends after " << seconds() << " s: " << endReason(); });
    }
    shutDown();
    if (started) {
        report();
    }
    writeLastFiles();
    return exitStatus();
}

/** Starts the run. Reports an error and returns false if a thread cannot be started. */
bool Host::start()
{
    NIM_LOG(Severity_NOTICE) << "nimhost starts with " << static_cast<std::size_t>(options.threads)
                             << " sources";
    began = Clock::now();
    if (results) {
        results->begin();
    }
    signals.beginRun(std::chrono::seconds(options.seconds));
    try {
        startThread(monitorThread);
        monitorStarted = true;
        for (HostThread& hostThread : threads) {
            startThread(*hostThread.thread);
            hostThread.started = true;
        }
    } catch (const std::exception& exc) {
        reportError(exc.what(), 2);
        return false;
    }
    serviceManager.reportReady("Answers requests");
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

/** Writes a line to standard error and to the log, and raises the exit status to `exitStatus`. */
void Host::reportError(const std::string& text, int exitStatus)
{
    status = std::max(status, exitStatus);
    writeError({text});
    logSafely([&] { NIM_LOG(Severity_ERROR) << text; });
}

bool Host::atEnd() const
{
    return ending || (options.seconds != 0 && seconds() >= options.seconds) || isAllAnswered()
           || (results && results->failure() != 0);
}

const char* Host::endReason() const
{
    return results && results->failure() != 0 ? "its results cannot be written"
           : ending                           ? "it received a signal"
           : isAllAnswered()                  ? "all work is done"
                                              : "its time limit was reached";
}

bool Host::isAllAnswered() const
{
    const bool allRead = std::all_of(threads.begin(), threads.end(), [](const HostThread& hostThread) {
        return !hostThread.started || hostThread.thread->status() == Task::TSF_FINISHED;
    });
    return allRead && counters.requestsOpen == 0;
}

void Host::waitForEnd()
{
    const bool terminal = !results && isatty(STDOUT_FILENO) != 0;
    while (!atEnd()) {
        const SignalWatch::Arrived arrived = signals.wait(PROGRESS_INTERVAL);
        serviceManager.keepAlive();
        if (terminal) {
            showProgress(std::cout, seconds(), counters, traces.rotations());
        }
        updateFiles();
        logSafely([&] { logWatch.check(); });
        handleSignals(arrived);
    }
    if (terminal) {
        clearProgress(std::cout);
    }
}

void Host::handleSignals(const SignalWatch::Arrived& arrived)
{
    if (arrived.reload) {
        reloadConfiguration();
    }
    if (arrived.end != 0) {
        logSafely([&] { NIM_LOG(Severity_NOTICE) << "nimhost received signal " << arrived.end; });
        if (stop.now) {
            drop();
        }
        ending = true;
    }
}

void Host::reloadConfiguration()
{
    // If the new configuration is invalid, the current one stays in effect unchanged, and the exit status
    // is 2.
    serviceManager.reportReloading();
    try {
        const Configuration fresh(options.config, Configuration::WHILE_RUNNING);
        checkFilePaths(fresh.logPath());
        fresh.check(sourceNames());
        const std::size_t ignored = applyConfiguration(fresh);
        ++counters.configurationsReloaded;
        serviceManager.reportReady(ignored == 0
                                       ? "Answers requests, has reloaded its configuration"
                                       : "Answers requests, has reloaded its configuration except for "
                                             + std::to_string(ignored) + " settings that require a restart");
    } catch (...) {
        ++counters.configurationsRejected;
        const std::string why = currentFailure();
        keepConfiguration(why);
        serviceManager.reportReady("Answers requests, keeps its configuration: " + why);
    }
}

std::size_t Host::applyConfiguration(const Configuration& fresh)
{
    fresh.configureLog();
    logWatch.setConfiguration(fresh);
    logWarnings(fresh.warnings());
    endLimit = fresh.endLimit();
    setStuckLimit(fresh.stuckLimit());
    const std::vector<std::string> waiting = plugins.configure(fresh);
    for (const HostThread& hostThread : threads) {
        if (hostThread.source) {
            hostThread.source->configure(fresh.source(hostThread.source->name()));
        }
    }
    for (const std::string& name : waiting) {
        NIM_LOG(Severity_NOTICE) << "the new settings of the plug-in " << name
                                 << " take effect when it is reloaded";
    }
    const std::vector<RestartSetting> ignored = configuration.restartSettings(fresh, sourceNames());
    for (const RestartSetting& setting : ignored) {
        NIM_LOG(Severity_WARNING) << setting.name << " requires a restart: " << setting.current
                                  << " remains in effect, not " << setting.requested;
    }
    if (ignored.empty()) {
        NIM_LOG(Severity_NOTICE) << "nimhost has reloaded " << options.config;
    } else {
        NIM_LOG(Severity_NOTICE) << "nimhost has reloaded " << options.config << ", except for "
                                 << ignored.size() << " settings that require a restart";
    }
    return ignored.size();
}

void Host::keepConfiguration(const std::string& why)
{
    status = 2;
    writeError({why});
    logSafely([&] {
        logWatch.reopenIfRemoved();
        NIM_LOG_TRAPPED(Severity_ERROR, std::runtime_error(why), "nimhost keeps its configuration");
    });
}

/** Shuts down in the order of the flow of requests, so that none is lost. */
void Host::shutDown()
{
    stop.now = true;
    if (!waitForAnswers()) {
        exitWithUnanswered();
    }
    joinThreads();
    // All tasks have ended, so that this does not wait.
    if (!pool->shutdownWithin(std::chrono::milliseconds(DROP_LIMIT).count()).running.empty()) {
        exitWithUnanswered();
    }
    signals.noteProgress();
    dropRemaining();
    plugins.clear();
    // The log holds a reference to the file of an adapter that it writes to.
    adapters.clear();
    signals.noteProgress();
    joinMonitor();
    logSafely([&] {
        NIM_LOG(Severity_NOTICE) << "nimhost is down: sources stopped, queues completed, pool "
                                 << pool->name() << " shut down after " << counters.tasksRun << " tasks";
    });
}

/** Returns true if no task is queued or running. A plug-in may have added tasks of its own. */
bool Host::isPoolQuiet() const
{
    const nim::mt::PoolStatistics figures = pool->statistics();
    return figures.pending == 0 && figures.running == 0;
}

/**
 * Returns false if requests are still unanswered, or threads or tasks running, when the time for a shutdown
 * is over.
 */
bool Host::waitForAnswers()
{
    const Clock::time_point endBegan = Clock::now();
    while (!isAllAnswered() || !isPoolQuiet()) {
        handleSignals(signals.wait(END_INTERVAL));
        serviceManager.keepAlive();
        updateFiles();
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

/**
 * Drops requests that no worker has started, and results that cannot be written because their reader has
 * stalled.
 */
void Host::drop()
{
    stop.drop = true;
    if (results) {
        results->disableWaiting();
    }
}

/**
 * Reports the unanswered requests and the tasks that still run, and ends the process. Threads that are busy
 * cannot be stopped, and nothing that they use may be destroyed.
 */
void Host::exitWithUnanswered()
{
    reportError(std::to_string(counters.requestsOpen) + " requests are unanswered "
                    + std::to_string(endLimit.count()) + " seconds after the end of the run",
                1);
    for (const nim::mt::RunningTask& task : pool->runningTasks(true)) {
        if (task.task != 0) {
            std::string tracks;
            for (const nim::String& line : task.tracks) {
                tracks += "\n  " + line;
            }
            reportError("the task " + task.name + " has been running for " + std::to_string(task.milliseconds)
                            + " ms on thread " + std::to_string(task.thread) + tracks,
                        1);
        }
    }
    counters.requestsDropped += static_cast<std::uint64_t>(std::max<std::int64_t>(counters.requestsOpen, 0));
    if (results) {
        results->dropUnfilled();
        results->end();
    }
    report();
    writeLastFiles();
    std::cout.flush();
    std::_Exit(exitStatus());
}

void Host::joinThreads()
{
    for (HostThread& hostThread : threads) {
        signals.noteProgress();
        // join() returns the exception that ended the thread; the thread still owns it.
        const std::exception* const error = hostThread.started ? hostThread.thread->join() : nullptr;
        if (hostThread.source) {
            hostThread.source->complete();
        }
        if (error != nullptr) {
            ++(hostThread.source ? counters.sourcesFailed : counters.documentsRejected);
            logSafely(
                [&] { NIM_LOG_TRAPPED(Severity_ERROR, *error, hostThread.thread->name() + " ended early"); });
        }
    }
}

void Host::joinMonitor()
{
    while (monitorStarted && monitorThread.status() != Task::TSF_FINISHED) {
        monitorThread.waitForStateChange(1000);
    }
}

void Host::dropRemaining()
{
    for (const HostThread& hostThread : threads) {
        if (hostThread.source) {
            hostThread.source->dropRemaining();
        }
    }
    if (results) {
        results->dropUnfilled();
        results->end();
    }
}

/** Reports the reasons of a nonzero status, and prints the summary. */
void Host::report()
{
    if (results && results->failure() != 0) {
        reportError("cannot write the results: " + nim::sys::sys_err_string(results->failure()), 1);
    }
    if (counters.requestsDropped != 0 || counters.documentsDropped != 0) {
        reportError(std::to_string(counters.requestsDropped) + " requests and "
                        + std::to_string(counters.documentsDropped) + " documents were dropped",
                    1);
    }
    // Standard output contains only the results if there are documents.
    std::ostream& os = results ? std::cerr : std::cout;
    showTable(os, Summary(seconds(), counters, traces.rotations()));
    if (!os.flush()) {
        reportError("cannot write the summary", 1);
    }
}

int Host::exitStatus() const
{
    // Requests of the sources fail as configured.
    const bool failed = counters.documentsRejected != 0 || counters.documentRequestsFailed != 0;
    return status != 0 ? status : failed ? 1 : 0;
}

void Host::updateFiles()
{
    if (recorder) {
        recorder->update(seconds());
    }
    if (metrics) {
        metrics->update(seconds());
    }
}

void Host::writeLastFiles()
{
    try {
        if (recorder) {
            recorder->end(seconds());
        }
    } catch (const std::exception& exc) {
        reportError(exc.what(), 1);
    }
    try {
        if (metrics) {
            metrics->write();
        }
    } catch (const std::exception& exc) {
        reportError(exc.what(), 1);
    }
}

double Host::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - began).count();
}

}
