#include "Monitor.hpp"

#include <dalnim/nim.hpp>

#include <chrono>
#include <thread>

namespace nimhost {

namespace {

constexpr std::chrono::milliseconds POLL_INTERVAL(20);
constexpr std::chrono::seconds REPORT_INTERVAL(1);

}

Monitor::Monitor(const Counters& hostCounters, const Stop& hostStop,
                 com::kor::dal::nim::mt::Watchdog& hostWatchdog)
    : counters(hostCounters), stop(hostStop), watchdog(hostWatchdog)
{
}

void Monitor::run()
{
    auto next = std::chrono::steady_clock::now() + REPORT_INTERVAL;
    while (!stop.now) {
        std::this_thread::sleep_for(POLL_INTERVAL);
        if (std::chrono::steady_clock::now() >= next) {
            next += REPORT_INTERVAL;
            NIM_LOG(Severity_NOTICE) << counters.tasksRun << " tasks run, longest wait "
                                     << counters.longestWaitMicros << " us";
            watchdog.check();
        }
    }
}

}
