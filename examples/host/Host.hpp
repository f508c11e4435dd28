#ifndef NIMHOST_HOST_HPP
#define NIMHOST_HOST_HPP

#include "DocumentReader.hpp"
#include "LogWatch.hpp"
#include "Monitor.hpp"
#include "Options.hpp"
#include "Plugin.hpp"
#include "PluginTable.hpp"
#include "Results.hpp"
#include "RotationTraces.hpp"
#include "SignalWatch.hpp"
#include "Source.hpp"
#include "StatusRecorder.hpp"

#include <dalnim/mt/Thread.hpp>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace nimhost {

/** The run of the host: its sources, each on a thread, the pool, and the signals that steer it. */
class Host
{
public:
    /**
     * Reads the configuration, opens the log and writes the first page. Throws ConfigurationError, and what
     * the library and adapters throw.
     */
    explicit Host(const Options& options);

    /**
     * Runs to the end and shows the table; the result is the exit status. If requests have no answer when the
     * time for an orderly end is over, it ends the process by itself, with status 1.
     */
    int run();

private:
    /** A thread of the host and whether it was started. */
    struct Station
    {
        /** Null for the thread of the reader. */
        std::unique_ptr<Source> source;
        std::unique_ptr<com::kor::dal::nim::mt::Thread> thread;
        bool started = false;
    };

    /** Loads plug-ins that the log's configuration may need. */
    std::vector<Plugin> loadAdapters() const;
    void makePool();
    void makeSources();
    void makeReader();
    void requireOwnPage(const std::string& log) const;
    std::vector<std::string> sourceNames() const;

    bool start();
    void startThread(com::kor::dal::nim::mt::Thread& thread);
    void waitForEnd();
    bool atEnd() const;
    const char* endReason() const;
    bool isAllAnswered() const;
    void handleSignals(const SignalWatch::Arrived& arrived);

    void readConfigurationAgain();
    void applyConfiguration(const Configuration& fresh);
    void keepConfiguration(const std::string& why);

    void shutDown();
    bool awaitAnswers();
    void drop();
    void joinThreads();
    void joinMonitor();
    void dropRest();
    void endUnanswered();
    void report();
    void writeLastStatus();
    void complain(const std::string& text, int exitStatus);
    int exitStatus() const;
    double seconds() const;

    const Options& options;
    Counters counters;
    // Before everything that may wait or start a thread.
    SignalWatch signals;
    Stop stop;
    RotationTraces traces;
    /** As it was at the start: settings that are not read again are in effect as they are here. */
    const Configuration configuration;
    std::vector<Plugin> adapters;
    std::unique_ptr<com::kor::dal::nim::mt::ThreadPool> pool;
    std::vector<Station> stations;
    PluginTable plugins;
    /** These two for documents alone. */
    std::unique_ptr<Results> results;
    std::unique_ptr<DocumentReader> reader;
    /** Only when a page is asked for. */
    std::unique_ptr<StatusRecorder> recorder;
    LogWatch logWatch;
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
