#include <dalnim/dalbase.hpp>

#include <dalnim/sys/System.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/src/TimeZone.hpp>
#include <qv/pmx/time.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace com::kor::dal::nim::sys {

namespace {

constexpr std::int64_t MICROS_PER_SECOND = 1000000;
constexpr std::int64_t DCE_INTERVALS_PER_SECOND = 10000000;
constexpr std::int64_t NANOS_PER_MICRO = 1000;
constexpr std::int64_t NANOS_PER_DCE_INTERVAL = 100;

/** Intervals from 15 October 1582, the start of the Gregorian calendar, to the epoch. */
constexpr std::int64_t DCE_TIME_OF_EPOCH = 122192928000000000;

/**
 * The wall clock with 64-bit seconds. Those of qv_si_gettime() have 32 bits and overflow in January 2038. If
 * the clock cannot be read, this is the epoch.
 */
struct WallClock
{
    WallClock()
    {
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        seconds = now.tv_sec;
        nanoseconds = now.tv_nsec;
    }

    std::int64_t seconds;
    std::int64_t nanoseconds;
};

}

void System::sleep(unsigned int milliseconds)
{
    si_timespec_t interval = {};
    si_timespec_t remaining = {};
    interval.seconds = static_cast<si_int32_t>(milliseconds / 1000);
    interval.nanoseconds = static_cast<si_int32_t>(milliseconds % 1000 * 1000000);
    qv_si_nanosleep(&interval, &remaining);
}

TimeUS_t System::timeMicros()
{
    const WallClock now;
    return now.seconds * MICROS_PER_SECOND + now.nanoseconds / NANOS_PER_MICRO;
}

TimeMS_t System::timeMillis()
{
    return timeMicros() / 1000;
}

TimeDCE_t System::dceTime()
{
    const WallClock now;
    return now.seconds * DCE_INTERVALS_PER_SECOND + now.nanoseconds / NANOS_PER_DCE_INTERVAL
           + DCE_TIME_OF_EPOCH;
}

// Each log record calls one of these, so the track is constructed only on failure.

tm& System::localtime(tm& result, time_t timeval)
{
    if (internal::TimeZone::localTime(timeval, result) != 0) {
        const StackTrack track("localtime()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
        throw system_error(ENOSYS);
    }
    return result;
}

tm& System::utctime(tm& result, time_t timeval)
{
    if (internal::TimeZone::utcTime(timeval, result) != 0) {
        const StackTrack track("utctime()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
        throw system_error(ENOSYS);
    }
    return result;
}

}
