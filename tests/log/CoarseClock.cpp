#include "CoarseClock.hpp"

#include <atomic>
#include <cstdint>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::int64_t NANOS_PER_SECOND = 1000000000;

/** The time in nanoseconds while the clock is stopped; 0 while it runs. */
std::atomic<std::int64_t> stoppedAt{0};

}

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    const std::int64_t stopped = clock == CLOCK_MONOTONIC_COARSE ? stoppedAt.load() : 0;
    if (stopped == 0) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    *now = {stopped / NANOS_PER_SECOND, stopped % NANOS_PER_SECOND};
    return 0;
}

namespace logtest {

StoppedClock::StoppedClock()
{
    stoppedAt = 1000000 * NANOS_PER_SECOND;
}

StoppedClock::~StoppedClock()
{
    stoppedAt = 0;
}

void StoppedClock::advance(std::chrono::milliseconds time)
{
    stoppedAt += std::chrono::nanoseconds(time).count();
}

}
