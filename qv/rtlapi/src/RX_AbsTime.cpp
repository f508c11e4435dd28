#include <qv/rtlapi/RX_AbsTime.hpp>

namespace {

timespec readClock()
{
    // Cannot fail: the clock exists and the pointer is valid.
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

}

RX_AbsTime::RX_AbsTime(const RX_RelTime& interval) : RX_AbsTime(interval, readClock()) {}

RX_AbsTime::RX_AbsTime(const RX_RelTime& interval, const timespec& now)
    : RX_Time(si_int64_t{now.tv_sec} + interval.seconds(), si_int64_t{now.tv_nsec} + interval.nanoseconds())
{
}

RX_AbsTime::RX_AbsTime(const RX_Time& point) : RX_Time(point) {}

RX_AbsTime RX_AbsTime::deadline() const
{
    return *this;
}
