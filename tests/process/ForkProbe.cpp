/**
 * A process that logs in local time and with a named global locale, while its other threads are inside the
 * locks of the C and the C++ library that this needs.
 *
 *     fork PATH TIMES      forks TIMES children, each of which logs in several ways
 *     signals PATH TIMES   logs TIMES records, interrupted every 100 us by a signal handler that logs
 *
 * PATH is the log file. Prints the counts of the run.
 */

#include "Life.hpp"
#include "Patience.hpp"

#include <dalnim/log/Control.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/sys/System.hpp>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace processtest;
namespace log = com::kor::dal::nim::log;
namespace sys = com::kor::dal::nim::sys;

/** Exit status if the locale is not installed; the test is then skipped. */
constexpr int NO_LOCALE = 77;

/** Runs `action` on a thread for as long as the process lives; returns after its first round. */
template <class Action>
void repeatForever(Action action)
{
    static std::atomic<int>& started = *new std::atomic<int>(0);
    const int ready = started + 1;
    std::thread([action] {
        action();
        for (++started;;) {
            action();
        }
    }).detach();
    while (started != ready) {
        std::this_thread::yield();
    }
}

std::string nestedText()
{
    NIM_LOG(Severity_WARNING) << "nested";
    return "outer";
}

/** Runs a child. Constructs no stream, which would be at the application's own risk. */
[[noreturn]] void logAsChild(const std::string& path)
{
    alarm(PATIENCE_S);
    NIM_LOG(Severity_WARNING) << "child " << 1234567;
    NIM_LOG(Severity_WARNING) << nestedText();
    std::thread([] { NIM_LOG(Severity_WARNING) << "thread of a child"; }).join();
    std::tm time = {};
    sys::System::localtime(time, std::time(nullptr));
    // A new file, with its stream header, and two reports of the change.
    com_kor_dal_nim_log_control.setPath(path + ".child");
    com_kor_dal_nim_log_control.setSeverity(log::Severity_INFO);
    _exit(0);
}

int forkMany(const std::string& path, long times)
{
    repeatForever([] { NIM_LOG(Severity_WARNING) << "parent"; });
    repeatForever([] {
        std::tm time = {};
        sys::System::localtime(time, std::time(nullptr));
    });
    // The application's own streams acquire the lock of the locale continuously.
    repeatForever([] { const std::ostringstream stream; });
    long ended = 0;
    long hung = 0;
    for (; ended < times; ++ended) {
        const pid_t child = fork();
        if (child == 0) {
            logAsChild(path);
        }
        int status = -1;
        if (child == -1 || waitpid(child, &status, 0) != child) {
            std::cout << "no child: " << errno << std::endl;
            return 1;
        }
        if (status != 0) {
            ++hung;
            std::cout << "child " << ended << " ended with " << status << std::endl;
            if (hung == 3) {
                return 1;
            }
        }
    }
    std::cout << "children " << ended << ", hung " << hung << std::endl;
    return hung == 0 ? 0 : 1;
}

/** Number of statements in the handler that were not refused. There is only one thread. */
volatile long handled = 0;
volatile long calls = 0;

void logInHandler(int)
{
    const int error = errno;
    calls = calls + 1;
    NIM_LOG(Severity_WARNING) << "handler " << (handled = handled + 1);
    errno = error;
}

int interrupt(long times)
{
    struct sigaction action = {};
    action.sa_handler = logInHandler;
    action.sa_flags = SA_RESTART;
    constexpr suseconds_t PERIOD_US = 100;
    const itimerval timer = {{0, PERIOD_US}, {0, PERIOD_US}};
    if (sigaction(SIGALRM, &action, nullptr) != 0 || setitimer(ITIMER_REAL, &timer, nullptr) != 0) {
        return 1;
    }
    for (long i = 0; i < times; ++i) {
        // Longer than the initial memory of a record, so that the allocator is interrupted, too.
        NIM_LOG(Severity_WARNING) << "record " << i << std::string(static_cast<std::size_t>(i % 2000), '.');
    }
    const itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    std::cout << "calls " << calls << "\nhandled " << handled << "\nrefused "
              << com_kor_dal_nim_log_control.getRefusedStatements() << std::endl;
    return 0;
}

}

int main(int argc, char** argv)
{
    const std::string what = argc > 3 ? argv[1] : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    com_kor_dal_nim_log_control.setPath(argv[2]);
    com_kor_dal_nim_log_control.setLocaltime(true);
    const long times = std::stol(argv[3]);
    if (what == "signals") {
        return interrupt(times);
    }
    try {
        std::locale::global(std::locale("C.UTF-8"));
    } catch (const std::runtime_error&) {
        return NO_LOCALE;
    }
    // Without destructors, since the threads still use static objects.
    _exit(forkMany(argv[2], times));
}
