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

constexpr int POLL_MILLISECONDS = 200;

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

/** Blocks the signals, also in threads that are started later, and returns a descriptor to read them from. */
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

void SignalWatch::beginRun(std::chrono::seconds limit)
{
    const std::lock_guard<std::mutex> guard(lock);
    running = true;
    lastProgress = Clock::now();
    if (limit != std::chrono::seconds::zero()) {
        runEnd = lastProgress + limit;
    }
}

void SignalWatch::endRun()
{
    const std::lock_guard<std::mutex> guard(lock);
    runEnd = Clock::time_point::max();
    lastProgress = Clock::now();
}

SignalWatch::Arrived SignalWatch::wait(std::chrono::milliseconds interval)
{
    std::unique_lock<std::mutex> guard(lock);
    lastProgress = Clock::now();
    arrival.wait_for(guard, interval, [this] { return arrived.reload || arrived.end != 0; });
    lastProgress = Clock::now();
    const Arrived taken = arrived;
    arrived = Arrived();
    return taken;
}

void SignalWatch::noteProgress()
{
    const std::lock_guard<std::mutex> guard(lock);
    lastProgress = Clock::now();
}

void SignalWatch::watch()
{
    for (;;) {
        pollfd descriptors[] = {{source, POLLIN, 0}, {stopped, POLLIN, 0}};
        poll(descriptors, 2, POLL_MILLISECONDS);
        if (descriptors[1].revents != 0) {
            return;
        }
        signalfd_siginfo signal = {};
        while (read(source, &signal, sizeof signal) == sizeof signal) {
            handle(static_cast<int>(signal.ssi_signo));
        }
        endProcessIfStuck();
    }
}

void SignalWatch::handle(int signal)
{
    const std::lock_guard<std::mutex> guard(lock);
    if (signal == SIGHUP) {
        arrived.reload = true;
    } else if (!running) {
        endProcess(signal, "before it was running");
    } else if (firstEnd != 0) {
        endProcess(signal, "the second signal");
    } else {
        firstEnd = signal;
        arrived.end = signal;
    }
    arrival.notify_one();
}

/** Returns true if the main thread has made no progress for STUCK_SECONDS. */
bool SignalWatch::isMainThreadStuck() const
{
    return Clock::now() - lastProgress > std::chrono::seconds(STUCK_SECONDS);
}

/** Ends the process if the main thread does not respond to a signal or to the time limit. */
void SignalWatch::endProcessIfStuck()
{
    const std::lock_guard<std::mutex> guard(lock);
    if (firstEnd != 0 && isMainThreadStuck()) {
        endProcess(firstEnd, "because its main thread does not respond");
    }
    if (isMainThreadStuck() && Clock::now() - std::chrono::seconds(STUCK_SECONDS) > runEnd) {
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
    // The process ends by the signal, so that its parent sees the expected status.
    kill(getpid(), signal);
    _exit(128 + signal);
}

void SignalWatch::endProcessAfterItsTime() const noexcept
{
    char text[128];
    const int length =
        std::snprintf(text, sizeof text,
                      "nimhost: ended after its time limit, because its main thread does not respond: "
                      "%lld requests are unanswered\n",
                      static_cast<long long>(counters.requestsOpen));
    writeLastWords(text, static_cast<std::size_t>(std::max(length, 0)));
    _exit(1);
}

}
