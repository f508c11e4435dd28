#include <dalnim/log/Common.hpp>

#include <dalnim/log/nsdefs.hpp>
#include <dalnim/sys/SysError.hpp>

#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <random>
#include <stdexcept>

#include <unistd.h>

namespace {

using namespace logtest;
using testing::MatchesRegex;

static_assert(sizeof(log::Severity) == 4 && std::is_signed_v<std::underlying_type_t<log::Severity>>);
static_assert(sizeof(log::Mask) == 4);

/** Selects a time zone until the end of the scope. */
class TimeZone
{
public:
    explicit TimeZone(const char* zone)
    {
        if (const char* const old = std::getenv("TZ")) {
            before = old;
            wasSet = true;
        }
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone()
    {
        if (wasSet) {
            ::setenv("TZ", before.c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

private:
    String before;
    bool wasSet = false;
};

/** Selects local time until the end of the scope. */
struct LocalTime
{
    LocalTime()
    {
        log::LOG_LOCALTIME = true;
    }
    ~LocalTime()
    {
        log::LOG_LOCALTIME = false;
    }
};

TEST(Severity, ValuesAreOrderedBySeriousness)
{
    EXPECT_EQ(0, log::Severity_MIN);
    EXPECT_EQ(0, log::Severity_NONE);
    EXPECT_EQ(1, log::Severity_TRACE);
    EXPECT_EQ(2, log::Severity_DEBUG);
    EXPECT_EQ(3, log::Severity_INFO);
    EXPECT_EQ(4, log::Severity_NOTICE);
    EXPECT_EQ(5, log::Severity_WARNING);
    EXPECT_EQ(6, log::Severity_ERROR);
    EXPECT_EQ(7, log::Severity_FATAL);
    EXPECT_EQ(7, log::Severity_MAX);
    EXPECT_EQ(8, log::Severity_COUNT);
}

TEST(Severity, EachHasAName)
{
    EXPECT_EQ("NONE", log::getSeverityName(log::Severity_NONE));
    EXPECT_EQ("TRACE", log::getSeverityName(log::Severity_TRACE));
    EXPECT_EQ("DEBUG", log::getSeverityName(log::Severity_DEBUG));
    EXPECT_EQ("INFO", log::getSeverityName(log::Severity_INFO));
    EXPECT_EQ("NOTICE", log::getSeverityName(log::Severity_NOTICE));
    EXPECT_EQ("WARNING", log::getSeverityName(log::Severity_WARNING));
    EXPECT_EQ("ERROR", log::getSeverityName(log::Severity_ERROR));
    EXPECT_EQ("FATAL", log::getSeverityName(log::Severity_FATAL));
    EXPECT_EQ("NONE", log::getSeverityName(log::Severity_MIN));
    EXPECT_EQ("FATAL", log::getSeverityName(log::Severity_MAX));
}

TEST(Severity, UnknownValuesThrow)
{
    for (const int value :
         {8, 9, 255, 256, -1, -8, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ("Unrecognized NIM Log Severity", textOf<std::out_of_range>([value] {
                      log::getSeverityName(static_cast<log::Severity>(value));
                  }))
            << value;
    }
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([] { log::getSeverityName(log::Severity_COUNT); }));
}

TEST(Severity, LookupMatchesTheExactName)
{
    EXPECT_EQ(0, log::getSeverityId("NONE"));
    EXPECT_EQ(1, log::getSeverityId("TRACE"));
    EXPECT_EQ(2, log::getSeverityId("DEBUG"));
    EXPECT_EQ(3, log::getSeverityId("INFO"));
    EXPECT_EQ(4, log::getSeverityId("NOTICE"));
    EXPECT_EQ(5, log::getSeverityId("WARNING"));
    EXPECT_EQ(6, log::getSeverityId("ERROR"));
    EXPECT_EQ(7, log::getSeverityId("FATAL"));
    for (const char* const name :
         {"notice", "Notice", "", " NOTICE", "NOTICE ", "NOTIC", "NOTICES", "MAX", "4"}) {
        EXPECT_EQ("Unrecognized NIM Log Severity",
                  textOf<std::out_of_range>([name] { log::getSeverityId(name); }))
            << name;
    }
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([] { log::getSeverityId(String("INFO\0", 5)); }));
}

TEST(Mask, ValuesAreSingleBits)
{
    EXPECT_EQ(0u, log::Mask_MIN);
    EXPECT_EQ(0u, log::Mask_NONE);
    EXPECT_EQ(1u, log::Mask_DATETIME);
    EXPECT_EQ(2u, log::Mask_TIMEZONE);
    EXPECT_EQ(4u, log::Mask_SEVERITY);
    EXPECT_EQ(8u, log::Mask_HOSTNAME);
    EXPECT_EQ(16u, log::Mask_PROCESSNAME);
    EXPECT_EQ(32u, log::Mask_PROCESSID);
    EXPECT_EQ(64u, log::Mask_THREADID);
    EXPECT_EQ(128u, log::Mask_MODULENAME);
    EXPECT_EQ(256u, log::Mask_SOURCEFILE);
    EXPECT_EQ(512u, log::Mask_LINENUMBER);
    EXPECT_EQ(513u, log::Mask_MAX);
    EXPECT_EQ(1023u, log::Mask_ALL);
}

TEST(Mask, EachBitHasAName)
{
    EXPECT_EQ("NONE", log::getOutputName(0));
    EXPECT_EQ("DATETIME", log::getOutputName(1));
    EXPECT_EQ("TIMEZONE", log::getOutputName(2));
    EXPECT_EQ("SEVERITY", log::getOutputName(4));
    EXPECT_EQ("HOSTNAME", log::getOutputName(8));
    EXPECT_EQ("PROCESSNAME", log::getOutputName(16));
    EXPECT_EQ("PROCESSID", log::getOutputName(32));
    EXPECT_EQ("THREADID", log::getOutputName(64));
    EXPECT_EQ("MODULENAME", log::getOutputName(128));
    EXPECT_EQ("SOURCEFILE", log::getOutputName(256));
    EXPECT_EQ("LINENUMBER", log::getOutputName(512));
}

TEST(Mask, CombinationsThrow)
{
    for (const unsigned int mask : {3u, 5u, 513u, 1023u, 1024u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ("Unrecognized NIM Log Output Mask Bit",
                  textOf<std::out_of_range>([mask] { log::getOutputName(mask); }))
            << mask;
    }
}

TEST(Mask, LookupMatchesTheExactName)
{
    EXPECT_EQ(0u, log::getOutputBit("NONE"));
    EXPECT_EQ(1u, log::getOutputBit("DATETIME"));
    EXPECT_EQ(2u, log::getOutputBit("TIMEZONE"));
    EXPECT_EQ(4u, log::getOutputBit("SEVERITY"));
    EXPECT_EQ(8u, log::getOutputBit("HOSTNAME"));
    EXPECT_EQ(16u, log::getOutputBit("PROCESSNAME"));
    EXPECT_EQ(32u, log::getOutputBit("PROCESSID"));
    EXPECT_EQ(64u, log::getOutputBit("THREADID"));
    EXPECT_EQ(128u, log::getOutputBit("MODULENAME"));
    EXPECT_EQ(256u, log::getOutputBit("SOURCEFILE"));
    EXPECT_EQ(512u, log::getOutputBit("LINENUMBER"));
    for (const char* const name : {"datetime", "", "ALL", "MAX", "DATETIME ", "SEVERIT"}) {
        EXPECT_EQ("Unrecognized NIM Log Output Mask Bit",
                  textOf<std::out_of_range>([name] { log::getOutputBit(name); }))
            << name;
    }
}

TEST(Common, StandardStreamsAreListedInOrder)
{
    ASSERT_EQ(3u, log::NUM_STD_LOG_STREAMS);
    EXPECT_STREQ("STDERR", log::STD_LOG_STREAMS[0].name);
    EXPECT_EQ(&std::cerr, log::STD_LOG_STREAMS[0].addr);
    EXPECT_STREQ("STDOUT", log::STD_LOG_STREAMS[1].name);
    EXPECT_EQ(&std::cout, log::STD_LOG_STREAMS[1].addr);
    EXPECT_STREQ("STDLOG", log::STD_LOG_STREAMS[2].name);
    EXPECT_EQ(&std::clog, log::STD_LOG_STREAMS[2].addr);
}

TEST(Common, SeparatorAndTerminatorHaveTheirTexts)
{
    EXPECT_STREQ(" ", log::SEPARATOR);
    EXPECT_STREQ(" : ", log::TERMINATOR);
    EXPECT_STREQ("com.kor.dal.nim.log", log::NAMESPACE_NAME);
}

TEST(Common, NegativeNumbersAreShownAsUnsigned)
{
    EXPECT_EQ("0", log::toString(0));
    EXPECT_EQ("42", log::toString(42));
    EXPECT_EQ("4294967295", log::toString(-1));
    EXPECT_EQ("2147483647", log::toString(std::numeric_limits<int>::max()));
    EXPECT_EQ("2147483648", log::toString(std::numeric_limits<int>::min()));
}

TEST(Common, ProcessIdAndNameAreThoseOfThisProcess)
{
    EXPECT_EQ(::getpid(), log::getProcessId());
    EXPECT_EQ("log_tests", log::getProcessName());
}

TEST(DateTime, IsUtcInitially)
{
    EXPECT_FALSE(log::LOG_LOCALTIME);
    EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026", log::getDateTime(1794668720));
    EXPECT_EQ("Thu Jan 01 00:00:01 UTC 1970", log::getDateTime(1));
    EXPECT_EQ("Wed Dec 31 23:59:59 UTC 1969", log::getDateTime(-1));
    EXPECT_EQ("Thu Feb 29 12:00:00 UTC 2024", log::getDateTime(1709208000));
}

TEST(DateTime, UtcIsTheSameInEveryTimeZone)
{
    const TimeZone zone("CET-1");
    EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026", log::getDateTime(1794668720));
}

TEST(DateTime, ShowsLocalTimeWithItsNumericZone)
{
    const LocalTime local;
    {
        const TimeZone zone("CET-1");
        EXPECT_EQ("Sat Nov 14 16:05:20 +0100 2026", log::getDateTime(1794668720));
    }
    {
        const TimeZone zone("NST3:30");
        EXPECT_EQ("Sat Nov 14 11:35:20 -0330 2026", log::getDateTime(1794668720));
    }
    {
        const TimeZone zone("UTC0");
        EXPECT_EQ("Sat Nov 14 15:05:20 +0000 2026", log::getDateTime(1794668720));
    }
}

TEST(DateTime, EqualsTheResultOfStrftime)
{
    const LocalTime local;
    std::mt19937_64 random(20261121);
    for (const char* name :
         {"CET-1CEST,M3.5.0,M10.5.0/3", "NST3:30", "IST-5:30", "XYZ12", "LHST-10:30LHDT-11"}) {
        const TimeZone zone(name);
        for (int i = 0; i < 2000; ++i) {
            // Up to the year 12,700, and slightly before the epoch.
            const auto time = static_cast<std::time_t>(random() % 338000000000) - 1000000000;
            std::tm brokenDown = {};
            ASSERT_NE(::localtime_r(&time, &brokenDown), nullptr);
            char expected[64];
            ASSERT_NE(std::strftime(expected, sizeof expected, "%a %b %d %H:%M:%S %z %Y", &brokenDown), 0U);
            ASSERT_EQ(expected, log::getDateTime(time)) << time << " in " << name;
        }
    }
}

TEST(DateTime, ZeroIsNow)
{
    const std::time_t before = std::time(nullptr);
    const String text = log::getDateTime(0);
    const std::time_t after = std::time(nullptr);

    bool found = false;
    for (std::time_t t = before; t <= after; ++t) {
        found = found || text == log::getDateTime(t);
    }
    EXPECT_TRUE(found) << text;
    EXPECT_THAT(
        text, MatchesRegex("[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9] UTC "
                           "[0-9][0-9][0-9][0-9]"));
}

TEST(DateTime, YearOutOfRangeThrows)
{
    for (const bool local : {false, true}) {
        log::LOG_LOCALTIME = local;
        try {
            log::getDateTime(std::numeric_limits<std::time_t>::max());
            ADD_FAILURE() << "nothing raised";
        } catch (const com::kor::dal::nim::sys::system_error& exc) {
            EXPECT_EQ(38, exc.error());
        }
        log::LOG_LOCALTIME = false;
    }
}

}
