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
 * Receives SIGHUP, SIGINT and SIGTERM on a thread of its own, so that they work whatever the other threads
 * are blocked in: the opening of a FIFO, a plug-in that loops, a log whose reader has stopped.
 *
 * Until hostRuns() is called SIGINT and SIGTERM end the process: nothing has begun that must be ended in
 * order. Afterwards the host takes the first one, and a second one ends the process. So does the first one if
 * the host's main thread shows no progress for STUCK_SECONDS. SIGHUP waits for the host. SIGPIPE is
 * ignored: a reader that closes its end is a failed write.
 *
 * The time limit of the run holds in the same way: if the main thread is blocked when it is over, and stays
 * so for STUCK_SECONDS, the process ends with status 1. Otherwise the sources would go on without an end.
 */
class SignalWatch
{
public:
    static constexpr int STUCK_SECONDS = 5;

    /** Signals that have arrived since the last look. */
    struct Arrived
    {
        bool reload = false;
        /** The signal that asks for the end, or 0. */
        int end = 0;
    };

    /**
     * Blocks the signals in the calling thread, which must be the only one, and starts the watching thread.
     * @param counters names the requests that are unanswered when a signal ends the process
     * Throws std::system_error if the signals cannot be watched.
     */
    explicit SignalWatch(const Counters& counters);
    /** Gives SIGINT and SIGTERM their default action again; SIGHUP is ignored from here on. */
    ~SignalWatch();

    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /**
     * From here on the host takes the first signal to end.
     * @param limit how long the host may run; 0 for no limit
     */
    void hostRuns(std::chrono::seconds limit);
    /** The host has begun to end: the time limit of its run is of no interest any more. */
    void hostEnds();
    /** Waits for a signal, no longer than `interval`, and takes those that have arrived. */
    Arrived take(std::chrono::milliseconds interval);
    /** Shows that the main thread is at work; take() does so, too. */
    void noteProgress();

private:
    typedef std::chrono::steady_clock Clock;

    void watch();
    void note(int signal);
    bool isUnseen() const;
    void endIfStuck();
    [[noreturn]] void endProcess(int signal, const char* why) const noexcept;
    [[noreturn]] void endProcessAfterItsTime() const noexcept;

    const Counters& counters;
    /** The end of this object, for the watching thread. */
    const int stopped;
    /** A descriptor that the signals are read from. */
    const int source;
    /** Guards all below. */
    std::mutex lock;
    std::condition_variable arrival;
    Arrived arrived;
    bool running = false;
    /** The first signal to end, once it has come. */
    int firstEnd = 0;
    /** The end of the time that the host may run for. */
    Clock::time_point runEnd = Clock::time_point::max();
    /** When the main thread was seen last. */
    Clock::time_point lastSeen = Clock::now();
    std::thread watcher;
};

}

#endif
