#include "Monitor.hpp"

#include <dalnim/nim.hpp>

#include <chrono>
#include <thread>

namespace nimhost {

namespace {

constexpr std::chrono::milliseconds LOOK(20);
constexpr std::chrono::seconds INTERVAL(1);

}

Monitor::Monitor(const Counters& hostCounters, const Stop& hostStop) : counters(hostCounters), stop(hostStop)
{
}

void Monitor::run()
{
    auto next = std::chrono::steady_clock::now() + INTERVAL;
    while (!stop.now) {
        std::this_thread::sleep_for(LOOK);
        if (std::chrono::steady_clock::now() >= next) {
            next += INTERVAL;
            NIM_LOG(Severity_NOTICE) << counters.tasksRun << " tasks run, longest wait "
                                     << counters.longestWaitMicros << " us";
        }
    }
}

}
