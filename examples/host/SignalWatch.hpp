#ifndef NIMHOST_SIGNALWATCH_HPP
#define NIMHOST_SIGNALWATCH_HPP

#include "Counters.hpp"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

namespace nimhost {

/**
 * Receives SIGHUP, SIGINT and SIGTERM on a thread of its own, so that they work even if all other threads are
 * blocked, for example by opening a FIFO, a plug-in in an endless loop, or a log whose reader has stalled.
 *
 * Before beginRun(), SIGINT and SIGTERM end the process. Afterwards, the first one is passed to the host,
 * which shuts down. The process is ended by a second one, or if the main thread makes no progress for
 * STUCK_SECONDS after the first. SIGHUP is passed to the host. SIGPIPE is ignored: writing to a closed pipe
 * fails.
 *
 * Time limit: if the main thread makes no progress for STUCK_SECONDS after the end of the time that the host
 * may run, the process ends with status 1. Otherwise, the sources would run forever.
 */
class SignalWatch
{
public:
    static constexpr int STUCK_SECONDS = 5;

    /** The signals that have arrived since the last wait(). */
    struct Arrived
    {
        bool reload = false;
        /** SIGINT or SIGTERM, or 0. */
        int end = 0;
    };

    /**
     * Blocks the signals in the calling thread, which must be the only one, and starts the watching thread.
     * @param counters contains the number of unanswered requests, for the message when a signal ends the
     * process
     * @throws std::system_error if the signals cannot be watched
     */
    explicit SignalWatch(const Counters& counters);
    /** Restores the default actions of SIGINT and SIGTERM. SIGHUP is ignored afterwards. */
    ~SignalWatch();

    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /**
     * Starts passing signals to the host instead of ending the process.
     * @param limit time that the host may run; 0 means no limit
     */
    void beginRun(std::chrono::seconds limit);
    /** Disables the time limit: the host is shutting down. */
    void endRun();
    /** Waits up to `interval` for a signal, and returns those that have arrived. */
    Arrived wait(std::chrono::milliseconds interval);
    /** Records progress of the main thread, as wait() does. */
    void noteProgress();

private:
    typedef std::chrono::steady_clock Clock;

    void watch();
    void handle(int signal);
    bool isMainThreadStuck() const;
    void endProcessIfStuck();
    [[noreturn]] void endProcess(int signal, const char* why) const noexcept;
    [[noreturn]] void endProcessAfterItsTime() const noexcept;

    const Counters& counters;
    /** Event descriptor that stops the watching thread. */
    const int stopped;
    /** Descriptor that signals are read from. */
    const int source;
    /** Guards all members below. */
    std::mutex lock;
    std::condition_variable arrival;
    Arrived arrived;
    bool running = false;
    /** The first SIGINT or SIGTERM that has arrived, or 0. */
    int firstEnd = 0;
    /** End of the time that the host may run. */
    Clock::time_point runEnd = Clock::time_point::max();
    /** Time of the last progress of the main thread. */
    Clock::time_point lastProgress = Clock::now();
    std::thread watcher;
};

}

#endif
