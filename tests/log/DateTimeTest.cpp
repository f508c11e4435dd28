#include <dalnim/log/Common.hpp>

#include <gtest/gtest.h>

#include <ctime>

namespace {

namespace log = com::kor::dal::nim::log;

constexpr std::time_t DAY = 86400;

void expectAsFormattedByTheSystem(std::time_t time)
{
    std::tm brokenDown = {};
    ASSERT_NE(::gmtime_r(&time, &brokenDown), nullptr);
    char expected[64];
    ASSERT_NE(std::strftime(expected, sizeof expected, "%a %b %d %H:%M:%S UTC %Y", &brokenDown), 0U);
    ASSERT_EQ(expected, log::getDateTime(time)) << time;
}

TEST(DateTime, UtcIsThatOfTheSystemOnEveryDay)
{
    constexpr std::time_t YEAR_2110 = 4417977600;
    constexpr std::time_t END_OF_9999 = 253402300800;
    for (std::time_t midnight = DAY; midnight < YEAR_2110; midnight += DAY) {
        expectAsFormattedByTheSystem(midnight - 1);
        expectAsFormattedByTheSystem(midnight);
    }
    // Not a divisor of the days of a month, a year or a century.
    for (std::time_t time = YEAR_2110; time < END_OF_9999; time += 61 * DAY + 12347) {
        expectAsFormattedByTheSystem(time);
    }
    for (const std::time_t time : {END_OF_9999 - 1, END_OF_9999, END_OF_9999 + DAY, -DAY, -DAY - 1}) {
        expectAsFormattedByTheSystem(time);
    }
}

TEST(DateTime, UtcHasEachSecondOfADay)
{
    constexpr std::time_t LEAP_DAY = 1709164800;
    for (std::time_t second = 0; second < DAY; ++second) {
        expectAsFormattedByTheSystem(LEAP_DAY + second);
    }
}

}
