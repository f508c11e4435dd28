#ifndef NIMHOST_HOST_HPP
#define NIMHOST_HOST_HPP

#include "DocumentReader.hpp"
#include "Monitor.hpp"
#include "Options.hpp"
#include "Plugin.hpp"
#include "PluginTable.hpp"
#include "Results.hpp"
#include "RotationTraces.hpp"
#include "Source.hpp"
#include "StatusRecorder.hpp"

#include <dalnim/mt/Thread.hpp>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <vector>

namespace nimhost {

/** The run of the host: its sources, each on a thread, the pool, and the signals that steer it. */
class Host
{
public:
    /** Reads the configuration, opens the log and writes the first page. Throws std::runtime_error. */
    explicit Host(const Options& options);

    /** Runs to the end and shows the table; the result is the exit status. */
    int run();

private:
    /** A source and the thread that it runs on. */
    struct Station
    {
        std::unique_ptr<Source> source;
        std::unique_ptr<com::kor::dal::nim::mt::Thread> thread;
    };

    /** Plug-ins that the log's configuration may need. */
    std::vector<Plugin> loadAdapters() const;
    void makeSources();
    void makeReader();
    void start();
    void waitForEnd();
    bool atEnd() const;
    bool isAllRead() const;
    void handleSignal(int signal);
    void readConfigurationAgain();
    void keepConfiguration(const std::exception& why);
    void shutDown();
    void joinSources();
    void joinReader();
    void writeLastStatus();
    int exitStatus() const;
    double seconds() const;

    const Options& options;
    sigset_t signals;
    RotationTraces traces;
    Configuration configuration;
    std::vector<Plugin> adapters;
    Counters counters;
    Stop stop;
    std::unique_ptr<com::kor::dal::nim::mt::ThreadPool> pool;
    std::vector<Station> stations;
    PluginTable plugins;
    /** These three for documents alone. */
    std::unique_ptr<Results> results;
    std::unique_ptr<DocumentReader> reader;
    std::unique_ptr<com::kor::dal::nim::mt::Thread> readerThread;
    /** Only when a page is asked for. */
    std::unique_ptr<StatusRecorder> recorder;
    Monitor monitor;
    com::kor::dal::nim::mt::Thread monitorThread;
    std::chrono::steady_clock::time_point began;
    bool ending = false;
    int status = 0;
};

}

#endif
