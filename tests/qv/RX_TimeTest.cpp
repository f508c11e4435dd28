#include <qv/rtlapi/RX_Time.hpp>

#include <gtest/gtest.h>

#include <ctime>
#include <limits>
#include <utility>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

namespace {

constexpr int LEAST = std::numeric_limits<int>::min();
constexpr int GREATEST = std::numeric_limits<int>::max();

typedef std::pair<int, int> Parts;

Parts partsOf(const RX_Time& time)
{
    return {time.seconds(), time.nanoseconds()};
}

TEST(RXTime, NanosecondsAreNormalized)
{
    EXPECT_EQ(partsOf(RX_Time(0, 0)), Parts(0, 0));
    EXPECT_EQ(partsOf(RX_Time(1, 999999999)), Parts(1, 999999999));
    EXPECT_EQ(partsOf(RX_Time(1, 1000000000)), Parts(2, 0));
    EXPECT_EQ(partsOf(RX_Time(1, 2147483647)), Parts(3, 147483647));
    EXPECT_EQ(partsOf(RX_Time(0, -1)), Parts(-1, 999999999));
    EXPECT_EQ(partsOf(RX_Time(5, -1000000000)), Parts(4, 0));
    EXPECT_EQ(partsOf(RX_Time(0, -500000000)), Parts(-1, 500000000));
    EXPECT_EQ(partsOf(RX_Time(0, LEAST)), Parts(-3, 852516352));
    EXPECT_EQ(partsOf(RX_RelTime(0, 1500000000)), Parts(1, 500000000));
}

TEST(RXTime, NormalizingTwiceChangesNothing)
{
    RX_Time time(3, 1500000000);
    time.normalize();
    EXPECT_EQ(partsOf(time), Parts(4, 500000000));
}

TEST(RXTime, OverflowIsTheGreatestOrLeastTime)
{
    EXPECT_EQ(partsOf(RX_Time(GREATEST, 999999999)), Parts(GREATEST, 999999999));
    EXPECT_EQ(partsOf(RX_Time(GREATEST, 1000000000)), Parts(GREATEST, 999999999));
    EXPECT_EQ(partsOf(RX_Time(LEAST, 0)), Parts(LEAST, 0));
    EXPECT_EQ(partsOf(RX_Time(LEAST, -1)), Parts(LEAST, 0));
}

int monotonicSeconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int>(now.tv_sec);
}

TEST(RXAbsTime, IsTheCurrentTimePlusTheInterval)
{
    const int before = monotonicSeconds();
    const RX_AbsTime time(RX_RelTime(1000, 0));
    const int after = monotonicSeconds();
    EXPECT_GE(time.seconds(), before + 1000);
    EXPECT_LE(time.seconds(), after + 1000);

    const RX_AbsTime past(RX_RelTime(-10, 0));
    EXPECT_LE(past.seconds(), monotonicSeconds() - 10);
}

TEST(RXAbsTime, AcceptsTheLongestIntervals)
{
    const int before = monotonicSeconds();
    // 0xFFFFFFFF milliseconds.
    const RX_AbsTime time(RX_RelTime(4294967, 295000000));
    EXPECT_GE(time.seconds(), before + 4294967);
    EXPECT_LE(time.seconds(), before + 4294967 + 60);
    EXPECT_EQ(partsOf(RX_AbsTime(RX_RelTime(GREATEST, 999999999))), Parts(GREATEST, 999999999));
    EXPECT_LT(RX_AbsTime(RX_RelTime(LEAST, 0)).seconds(), 0);
}

TEST(RXTime, DeadlineOfAnIntervalStartsAtTheCall)
{
    // A point in time is its own deadline; an interval starts at the call.
    EXPECT_EQ(partsOf(RX_Time(12, 34).deadline()), Parts(12, 34));
    const RX_AbsTime point(RX_RelTime(5, 0));
    EXPECT_EQ(partsOf(point.deadline()), partsOf(point));
    const int before = monotonicSeconds();
    const RX_RelTime interval(100, 0);
    EXPECT_GE(interval.deadline().seconds(), before + 100);
    EXPECT_LE(interval.deadline().seconds(), monotonicSeconds() + 100);
}

}
