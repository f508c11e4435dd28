#include <qv/pmx/time.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

#include <pthread.h>
#include <signal.h>

#include "Threads.hpp"

namespace {

std::string format(const std::tm& time)
{
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %w %j", &time)};
}

/** Sets the time zone for a scope. */
class Zone
{
public:
    explicit Zone(const char* name)
    {
        if (const char* const previous = std::getenv("TZ")) {
            _previous = previous;
            _wasSet = true;
        }
        setenv("TZ", name, 1);
        tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
    ~Zone()
    {
        if (_wasSet) {
            setenv("TZ", _previous.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

private:
    std::string _previous;
    bool _wasSet = false;
};

TEST(GetTime, IsTheWallClock)
{
    const time_t before = time(nullptr);
    si_timespec_t now = {0, -1};
    ASSERT_EQ(qv_si_gettime(&now), 0);
    // time() reads a coarser clock, which may lag by one tick.
    EXPECT_GE(now.seconds, before);
    EXPECT_LE(now.seconds, time(nullptr) + 1);
    EXPECT_GE(now.nanoseconds, 0);
    EXPECT_LE(now.nanoseconds, 999999999);
}

TEST(GmTime, ConvertsToUtc)
{
    std::tm result = {};
    ASSERT_EQ(qv_si_gmtime(0, &result), 0);
    EXPECT_EQ(format(result), "1970-01-01 00:00:00 4 001");
    ASSERT_EQ(qv_si_gmtime(1794668720, &result), 0);
    EXPECT_EQ(format(result), "2026-11-14 15:05:20 6 318");
    ASSERT_EQ(qv_si_gmtime(-1, &result), 0);
    EXPECT_EQ(format(result), "1969-12-31 23:59:59 3 365");
    ASSERT_EQ(qv_si_gmtime(4107542400, &result), 0);
    EXPECT_EQ(format(result), "2100-03-01 00:00:00 1 060");
}

TEST(GmTime, AgreesWithGmtimeOnEveryDay)
{
    const time_t endOf9999 = 253402300800;
    for (time_t day = 0; day < endOf9999; day += 86400) {
        const time_t time = day + day / 86400 * 7919 % 86400;
        std::tm expected = {};
        std::tm result = {};
        ASSERT_NE(gmtime_r(&time, &expected), nullptr);
        ASSERT_EQ(qv_si_gmtime(time, &result), 0);
        ASSERT_TRUE(result.tm_sec == expected.tm_sec && result.tm_min == expected.tm_min
                    && result.tm_hour == expected.tm_hour && result.tm_mday == expected.tm_mday
                    && result.tm_mon == expected.tm_mon && result.tm_year == expected.tm_year
                    && result.tm_wday == expected.tm_wday && result.tm_yday == expected.tm_yday
                    && result.tm_isdst == 0 && result.tm_gmtoff == 0)
            << time;
    }
    std::tm result = {};
    ASSERT_EQ(qv_si_gmtime(endOf9999 - 1, &result), 0);
    EXPECT_STREQ(result.tm_zone, "GMT");
    EXPECT_EQ(format(result), "9999-12-31 23:59:59 5 365");
    ASSERT_EQ(qv_si_gmtime(endOf9999, &result), 0);
    EXPECT_EQ(result.tm_year, 8100);
}

TEST(LocalTime, ConvertsToTheTimeZone)
{
    const Zone zone("XYZ-2");
    std::tm result = {};
    ASSERT_EQ(qv_si_localtime(1794668720, &result), 0);
    EXPECT_EQ(format(result), "2026-11-14 17:05:20 6 318");
    ASSERT_EQ(qv_si_gmtime(1794668720, &result), 0);
    EXPECT_EQ(format(result), "2026-11-14 15:05:20 6 318");
}

TEST(Calendar, FailsIfTheYearDoesNotFit)
{
    std::tm result = {};
    EXPECT_EQ(qv_si_gmtime(std::numeric_limits<time_t>::max(), &result), 75);
    EXPECT_EQ(qv_si_localtime(std::numeric_limits<time_t>::max(), &result), 75);
    EXPECT_EQ(qv_si_gmtime(std::numeric_limits<time_t>::min(), &result), 75);
}

TEST(NanoSleep, SleepsForTheInterval)
{
    timespec before;
    timespec after;
    si_timespec_t remaining = {-1, -1};
    const si_timespec_t request = {0, 20000000};
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(qv_si_nanosleep(&request, &remaining), 0);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000000 + after.tv_nsec - before.tv_nsec, 20000000);
    EXPECT_EQ(remaining.seconds, 0);
    EXPECT_EQ(remaining.nanoseconds, 0);
}

TEST(NanoSleep, AcceptsAnEmptyInterval)
{
    const si_timespec_t request = {0, 0};
    EXPECT_EQ(qv_si_nanosleep(&request, nullptr), 0);
}

TEST(NanoSleep, FailsIfTheIntervalIsNotNormalized)
{
    si_timespec_t remaining = {};
    const si_timespec_t tooMany = {0, 1000000000};
    EXPECT_EQ(qv_si_nanosleep(&tooMany, &remaining), 22);
    const si_timespec_t negative = {-1, 0};
    EXPECT_EQ(qv_si_nanosleep(&negative, &remaining), 22);
}

void ignoreSignal(int) {}

TEST(NanoSleep, SignalInterruptsItAndTheRestIsReturned)
{
    struct sigaction action = {};
    struct sigaction previous = {};
    action.sa_handler = ignoreSignal;
    ASSERT_EQ(sigaction(SIGUSR1, &action, &previous), 0);

    qv_err_t status = -1;
    si_timespec_t remaining = {};
    pthread_t thread = {};
    qvtest::Gate isKnown;
    qvtest::Caller sleeper([&] {
        thread = pthread_self();
        isKnown.open();
        const si_timespec_t request = {3600, 0};
        status = qv_si_nanosleep(&request, &remaining);
    });
    isKnown.pass();
    // Repeated, since a signal may arrive before the sleep.
    while (sleeper.awaitAsleep()) {
        EXPECT_EQ(pthread_kill(thread, SIGUSR1), 0);
    }
    sleeper.join();
    sigaction(SIGUSR1, &previous, nullptr);

    EXPECT_EQ(status, 4);
    EXPECT_GT(remaining.seconds, 3000);
    // The system may round the interval up, and with it the rest.
    EXPECT_LE(remaining.seconds, 3600);
}

}
