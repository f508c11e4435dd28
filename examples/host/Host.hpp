#ifndef NIMHOST_HOST_HPP
#define NIMHOST_HOST_HPP

#include "DocumentReader.hpp"
#include "LogWatch.hpp"
#include "MetricsFile.hpp"
#include "Monitor.hpp"
#include "Options.hpp"
#include "Plugin.hpp"
#include "PluginTable.hpp"
#include "Results.hpp"
#include "RotationTraces.hpp"
#include "ServiceManager.hpp"
#include "SignalWatch.hpp"
#include "Source.hpp"
#include "StatusRecorder.hpp"

#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/Watchdog.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace nimhost {

/** The example host: its sources, each with a thread, the thread pool, and its reactions to signals. */
class Host
{
public:
    /**
     * Reads the configuration, opens the log and writes the first status page and metrics.
     * @throws ConfigurationError if the configuration is invalid; exceptions of the library and of adapters
     * propagate
     */
    explicit Host(const Options& options);

    /**
     * Runs the host to its end, prints the summary and returns the exit status. Ends the process itself, with
     * status 1, if requests are still unanswered when the time for an orderly shutdown is over.
     */
    int run();

private:
    /** A thread of the host. */
    struct HostThread
    {
        /** The source that the thread runs; null for the document reader. */
        std::unique_ptr<Source> source;
        std::unique_ptr<com::kor::dal::nim::mt::Thread> thread;
        bool started = false;
    };

    /** Loads the plug-ins that the log configuration may refer to. */
    std::vector<Plugin> loadAdapters() const;
    void makePool();
    void setStuckLimit(std::chrono::milliseconds limit);
    void makeSources();
    void makeReader();
    void checkFilePaths(const std::string& log) const;
    void checkFilePath(const char* option, const std::string& file, const std::string& log) const;
    std::vector<std::string> sourceNames() const;

    bool start();
    void startThread(com::kor::dal::nim::mt::Thread& thread);
    void waitForEnd();
    bool atEnd() const;
    const char* endReason() const;
    bool isAllAnswered() const;
    void handleSignals(const SignalWatch::Arrived& arrived);

    void reloadConfiguration();
    /** Applies the settings of a configuration. Returns the number of those that require a restart. */
    std::size_t applyConfiguration(const Configuration& fresh);
    void keepConfiguration(const std::string& why);

    void shutDown();
    bool isPoolQuiet() const;
    bool waitForAnswers();
    void drop();
    void joinThreads();
    void joinMonitor();
    void dropRemaining();
    void exitWithUnanswered();
    void report();
    void updateFiles();
    void writeLastFiles();
    void reportError(const std::string& text, int exitStatus);
    int exitStatus() const;
    double seconds() const;

    const Options& options;
    Counters counters;
    // Changes the environment, and therefore constructed before all threads.
    ServiceManager serviceManager;
    // Constructed before everything that may block or start a thread.
    SignalWatch signals;
    Stop stop;
    RotationTraces traces;
    /** The configuration at the start. Settings that are not reloaded still have its values. */
    const Configuration configuration;
    std::vector<Plugin> adapters;
    std::unique_ptr<com::kor::dal::nim::mt::ThreadPool> pool;
    std::vector<HostThread> threads;
    PluginTable plugins;
    /** Results and reader exist only if there are documents. */
    std::unique_ptr<Results> results;
    std::unique_ptr<DocumentReader> reader;
    /** Exists only if a status page was requested. */
    std::unique_ptr<StatusRecorder> recorder;
    /** Exists only if metrics were requested. */
    std::unique_ptr<MetricsFile> metrics;
    LogWatch logWatch;
    /** Its checks are made by the monitor. */
    com::kor::dal::nim::mt::Watchdog watchdog;
    Monitor monitor;
    com::kor::dal::nim::mt::Thread monitorThread;
    bool monitorStarted = false;
    std::chrono::steady_clock::time_point began;
    std::chrono::seconds endLimit;
    bool ending = false;
    int status = 0;
};

}

#endif
