#include "SignalWatch.hpp"

#include "Descriptors.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace nimhost {

namespace {

constexpr int LOOK_MILLISECONDS = 200;

sigset_t makeSet(std::initializer_list<int> numbers)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : numbers) {
        sigaddset(&signals, number);
    }
    return signals;
}

sigset_t watchedSignals()
{
    return makeSet({SIGHUP, SIGINT, SIGTERM});
}

int checked(int descriptor)
{
    if (descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot watch signals");
    }
    return descriptor;
}

/** Threads that are started afterwards inherit the block. */
int openBlockedSignals()
{
    const sigset_t signals = watchedSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    return checked(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

void setDefault(int signal) noexcept
{
    static_cast<void>(std::signal(signal, SIG_DFL));
    const sigset_t one = makeSet({signal});
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

}

SignalWatch::SignalWatch(const Counters& hostCounters)
    : counters(hostCounters), stopped(checked(eventfd(0, EFD_CLOEXEC))), source(openBlockedSignals())
{
    try {
        watcher = std::thread([this] { watch(); });
    } catch (const std::system_error& exc) {
        throw std::system_error(exc.code(), "cannot start the thread that watches signals");
    }
}

SignalWatch::~SignalWatch()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(stopped, &one, sizeof one);
    watcher.join();
    close(source);
    close(stopped);
    static_cast<void>(std::signal(SIGHUP, SIG_IGN));
    setDefault(SIGINT);
    setDefault(SIGTERM);
}

void SignalWatch::hostRuns(std::chrono::seconds limit)
{
    const std::lock_guard<std::mutex> guard(lock);
    running = true;
    lastSeen = Clock::now();
    if (limit != std::chrono::seconds::zero()) {
        runEnd = lastSeen + limit;
    }
}

void SignalWatch::hostEnds()
{
    const std::lock_guard<std::mutex> guard(lock);
    runEnd = Clock::time_point::max();
    lastSeen = Clock::now();
}

SignalWatch::Arrived SignalWatch::take(std::chrono::milliseconds interval)
{
    std::unique_lock<std::mutex> guard(lock);
    lastSeen = Clock::now();
    arrival.wait_for(guard, interval, [this] { return arrived.reload || arrived.end != 0; });
    lastSeen = Clock::now();
    const Arrived taken = arrived;
    arrived = Arrived();
    return taken;
}

void SignalWatch::noteProgress()
{
    const std::lock_guard<std::mutex> guard(lock);
    lastSeen = Clock::now();
}

void SignalWatch::watch()
{
    for (;;) {
        pollfd descriptors[] = {{source, POLLIN, 0}, {stopped, POLLIN, 0}};
        poll(descriptors, 2, LOOK_MILLISECONDS);
        if (descriptors[1].revents != 0) {
            return;
        }
        signalfd_siginfo signal = {};
        while (read(source, &signal, sizeof signal) == sizeof signal) {
            note(static_cast<int>(signal.ssi_signo));
        }
        endIfStuck();
    }
}

void SignalWatch::note(int signal)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (signal == SIGHUP) {
        arrived.reload = true;
    } else if (!running) {
        endProcess(signal, "before it was running");
    } else if (firstEnd != 0) {
        endProcess(signal, "the second one");
    } else {
        firstEnd = signal;
        arrived.end = signal;
    }
    arrival.notify_one();
}

/** Whether the main thread has not been seen for too long. */
bool SignalWatch::isUnseen() const
{
    return Clock::now() - lastSeen > std::chrono::seconds(STUCK_SECONDS);
}

/** Ends the process if the main thread does not end it, though a signal or the time limit asks for that. */
void SignalWatch::endIfStuck()
{
    const std::lock_guard<std::mutex> guard(lock);
    if (firstEnd != 0 && isUnseen()) {
        endProcess(firstEnd, "since its main thread does not respond");
    }
    if (isUnseen() && Clock::now() - std::chrono::seconds(STUCK_SECONDS) > runEnd) {
        endProcessAfterItsTime();
    }
}

void SignalWatch::endProcess(int signal, const char* why) const noexcept
{
    char text[128];
    const int length =
        std::snprintf(text, sizeof text, "nimhost: ended by signal %d, %s: %lld requests are unanswered\n",
                      signal, why, static_cast<long long>(counters.requestsOpen));
    writeLastWords(text, static_cast<std::size_t>(std::max(length, 0)));
    setDefault(signal);
    // The process dies of the signal, as the process that started it expects.
    kill(getpid(), signal);
    _exit(128 + signal);
}

void SignalWatch::endProcessAfterItsTime() const noexcept
{
    char text[128];
    const int length = std::snprintf(text, sizeof text,
                                     "nimhost: ended after its time, since its main thread does not respond: "
                                     "%lld requests are unanswered\n",
                                     static_cast<long long>(counters.requestsOpen));
    writeLastWords(text, static_cast<std::size_t>(std::max(length, 0)));
    _exit(1);
}

}
