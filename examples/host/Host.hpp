#ifndef NIMHOST_HOST_HPP
#define NIMHOST_HOST_HPP

#include "Options.hpp"
#include "RotationTraces.hpp"
#include "Source.hpp"

#include <chrono>
#include <csignal>
#include <memory>
#include <thread>
#include <vector>

namespace nimhost {

/** The run of the host: its sources, each on a thread, and the signals that steer it. */
class Host
{
public:
    /** Reads the configuration and opens the log. Throws ConfigurationError. */
    explicit Host(const Options& options);

    /** Runs to the end and shows the table; the result is the exit status. */
    int run();

private:
    void startSources();
    void waitForEnd();
    bool atEnd() const;
    void handleSignal(int signal);
    void readConfigurationAgain();
    void stopSources();
    double seconds() const;

    const Options& options;
    sigset_t signals;
    RotationTraces traces;
    Configuration configuration;
    Counters counters;
    Stop stop;
    std::vector<std::unique_ptr<Source>> sources;
    std::vector<std::thread> threads;
    std::atomic<unsigned int> running{0};
    std::chrono::steady_clock::time_point start;
    bool ending = false;
    int status = 0;
};

}

#endif
