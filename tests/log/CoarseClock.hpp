#ifndef TESTS_LOG_COARSECLOCK_HPP
#define TESTS_LOG_COARSECLOCK_HPP

#include <chrono>

namespace logtest {

/**
 * Stops the coarse monotonic clock of the process for the lifetime of the object. The program must contain
 * CoarseClock.cpp. One object at a time.
 */
class StoppedClock
{
public:
    StoppedClock();
    ~StoppedClock();
    StoppedClock(const StoppedClock&) = delete;
    StoppedClock& operator=(const StoppedClock&) = delete;

    void advance(std::chrono::milliseconds time);
};

}

#endif
