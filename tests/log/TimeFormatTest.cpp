// The forms of the date and time in records, and the clock that they are read from.

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/TimeFormat.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <thread>
#include <typeinfo>

#include <dlfcn.h>

namespace {

/** The readings of the wall clock by a thread. */
struct Clock
{
    /** Whether `now` is read instead of the time. */
    bool isFixed;
    std::timespec now;
    int timeCalls;
    int realtimeCalls;
};

thread_local Clock clock_of_thread;

template <class Function>
Function nextOf(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}

// Are found before the C library's own.
extern "C" __attribute__((visibility("default"))) std::time_t time(std::time_t* seconds) noexcept
{
    static const auto next = nextOf<std::time_t (*)(std::time_t*)>("time");
    Clock& clock = clock_of_thread;
    ++clock.timeCalls;
    const std::time_t now = clock.isFixed ? clock.now.tv_sec : next(nullptr);
    if (seconds != nullptr) {
        *seconds = now;
    }
    return now;
}

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t id, std::timespec* now) noexcept
{
    static const auto next = nextOf<int (*)(clockid_t, std::timespec*)>("clock_gettime");
    Clock& clock = clock_of_thread;
    if (id != CLOCK_REALTIME) {
        return next(id, now);
    }
    ++clock.realtimeCalls;
    if (!clock.isFixed) {
        return next(id, now);
    }
    *now = clock.now;
    return 0;
}

namespace {

using namespace logtest;
using log::Module;
using log::TimeFormat;

/** Sat Nov 14 15:05:20 UTC 2026 */
constexpr std::time_t NOON = 1794668720;

/** The wall clock of this thread at a fixed time, until the end of a scope. */
class FixedClock
{
public:
    FixedClock(std::time_t seconds, long nanoseconds)
    {
        clock_of_thread = {true, {seconds, nanoseconds}, 0, 0};
    }
    FixedClock(const FixedClock&) = delete;
    FixedClock& operator=(const FixedClock&) = delete;
    ~FixedClock()
    {
        clock_of_thread = {};
    }

    void set(std::time_t seconds, long nanoseconds)
    {
        clock_of_thread.now = {seconds, nanoseconds};
    }
    /** Number of calls of time() and of readings of the realtime clock since the last call. */
    std::pair<int, int> readings()
    {
        const std::pair<int, int> counted(clock_of_thread.timeCalls, clock_of_thread.realtimeCalls);
        clock_of_thread.timeCalls = clock_of_thread.realtimeCalls = 0;
        return counted;
    }
};

/** A local time zone, in the form of the variable TZ, until the end of a scope. */
class Zone
{
public:
    explicit Zone(const char* zone)
    {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
    ~Zone()
    {
        ::unsetenv("TZ");
        ::tzset();
    }
};

/** The prefix of a record without text, by a logger whose prefix is the date and time. */
String dateOf(OwnLogger& logger)
{
    Module module("shop", logger.write);
    NIM_LOG_TO(module, Severity_ERROR);
    const String line = logger.taken();
    return line.substr(0, line.find(" : "));
}

String dateIn(TimeFormat format)
{
    OwnLogger logger(log::Mask_DATETIME);
    logger.write.setTimeFormat(format);
    return dateOf(logger);
}

TEST(TimeFormat, IsTheSpecifiedOneAtFirst)
{
    const FixedClock clock(NOON, 123456789);
    OwnLogger logger(log::Mask_DATETIME);
    EXPECT_EQ(log::TimeFormat_LOCAL, logger.write.getTimeFormat());
    EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026", dateOf(logger));
}

TEST(TimeFormat, UtcIsIso8601WithTheZoneZ)
{
    const FixedClock clock(NOON, 123456789);
    const Zone zone("EST+5");
    EXPECT_EQ("2026-11-14T15:05:20Z", dateIn(log::TimeFormat_UTC));
    EXPECT_EQ("2026-11-14T15:05:20.123Z", dateIn(log::TimeFormat_UTC_MS));
    EXPECT_EQ("2026-11-14T15:05:20.123456Z", dateIn(log::TimeFormat_UTC_US));
}

TEST(TimeFormat, OffsetIsTheLocalTimeWithItsOffset)
{
    const FixedClock clock(NOON, 9008007);
    {
        const Zone zone("CET-1");
        EXPECT_EQ("2026-11-14T16:05:20+01:00", dateIn(log::TimeFormat_OFFSET));
        EXPECT_EQ("2026-11-14T16:05:20.009+01:00", dateIn(log::TimeFormat_OFFSET_MS));
        EXPECT_EQ("2026-11-14T16:05:20.009008+01:00", dateIn(log::TimeFormat_OFFSET_US));
    }
    {
        const Zone zone("NST+3:30");
        EXPECT_EQ("2026-11-14T11:35:20-03:30", dateIn(log::TimeFormat_OFFSET));
    }
    {
        const Zone zone("NZDT-13");
        EXPECT_EQ("2026-11-15T04:05:20.009+13:00", dateIn(log::TimeFormat_OFFSET_MS));
    }
    const Zone zone("UTC0");
    EXPECT_EQ("2026-11-14T15:05:20+00:00", dateIn(log::TimeFormat_OFFSET));
}

TEST(TimeFormat, FractionIsTruncated)
{
    const FixedClock clock(NOON, 999999999);
    EXPECT_EQ("2026-11-14T15:05:20.999Z", dateIn(log::TimeFormat_UTC_MS));
    EXPECT_EQ("2026-11-14T15:05:20.999999Z", dateIn(log::TimeFormat_UTC_US));
}

TEST(TimeFormat, YearsOfMoreOrLessThanFourDigitsHaveASign)
{
    FixedClock clock(253402300799, 0);
    EXPECT_EQ("9999-12-31T23:59:59Z", dateIn(log::TimeFormat_UTC));
    clock.set(253402300800, 1000000);
    EXPECT_EQ("+10000-01-01T00:00:00.001Z", dateIn(log::TimeFormat_UTC_MS));
    clock.set(-1, 500000000);
    EXPECT_EQ("1969-12-31T23:59:59.500Z", dateIn(log::TimeFormat_UTC_MS));
    clock.set(0, 0);
    EXPECT_EQ("1970-01-01T00:00:00Z", dateIn(log::TimeFormat_UTC));
    clock.set(-62167219200, 0);
    EXPECT_EQ("0000-01-01T00:00:00Z", dateIn(log::TimeFormat_UTC));
    clock.set(-62167219201, 0);
    EXPECT_EQ("-1-12-31T23:59:59Z", dateIn(log::TimeFormat_UTC));
}

TEST(TimeFormat, IsOneFieldThatTheMaskSelects)
{
    const FixedClock clock(NOON, 123456789);
    OwnLogger logger(log::Mask_TIMEZONE | log::Mask_SEVERITY);
    logger.write.setTimeFormat(log::TimeFormat_UTC_MS);
    writeError(logger.write, "text");
    EXPECT_EQ("ERROR : text\n", logger.taken());
    logger.write.setOutputMask(log::Mask_DATETIME | log::Mask_SEVERITY);
    EXPECT_EQ(unsigned(log::Mask_DATETIME | log::Mask_SEVERITY), logger.write.getOutputMask());
    EXPECT_EQ(log::TimeFormat_UTC_MS, logger.write.getTimeFormat());
    writeError(logger.write, "text");
    EXPECT_EQ("2026-11-14T15:05:20.123Z ERROR : text\n", logger.taken());
}

TEST(TimeFormat, SettingOfLocalTimeDoesNotApply)
{
    const FixedClock clock(NOON, 123456789);
    const Zone zone("CET-1");
    OwnLogger logger(log::Mask_DATETIME);
    logger.write.setLocaltime(true);
    const String local = dateOf(logger);
    logger.write.setTimeFormat(log::TimeFormat_UTC);
    const String utc = dateOf(logger);
    logger.write.setLocaltime(false);
    EXPECT_EQ("Sat Nov 14 16:05:20 +0100 2026", local);
    EXPECT_EQ("2026-11-14T15:05:20Z", utc);
}

TEST(TimeFormat, TimeIsThatOfTheStatement)
{
    FixedClock clock(NOON, 1000);
    OwnLogger logger(log::Mask_DATETIME);
    logger.write.setTimeFormat(log::TimeFormat_UTC_US);
    Module module("shop", logger.write);
    const auto wait = [&clock] {
        clock.set(NOON + 7, 2000);
        return "text";
    };
    NIM_LOG_TO(module, Severity_ERROR) << wait();
    EXPECT_EQ("2026-11-14T15:05:20.000001Z : text\n", logger.taken());
    log::Header header(log::Severity_ERROR, "x/Source", 7);
    clock.set(NOON + 9, 9000);
    logger.write.log(module, header, false);
    EXPECT_EQ("2026-11-14T15:05:27.000002Z : \n", logger.taken());
    EXPECT_EQ(NOON + 7, header.getWhen());
}

TEST(TimeFormat, ClockIsReadOnceForSecondAndFraction)
{
    FixedClock clock(NOON, 0);
    OwnLogger plain(log::Mask_DATETIME);
    EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026", dateOf(plain));
    EXPECT_EQ(std::make_pair(1, 0), clock.readings());
    {
        OwnLogger exact(log::Mask_DATETIME);
        exact.write.setTimeFormat(log::TimeFormat_UTC_US);
        EXPECT_EQ("2026-11-14T15:05:20.000000Z", dateOf(exact));
        EXPECT_EQ(std::make_pair(0, 1), clock.readings());
        EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026", dateOf(plain));
        EXPECT_EQ(std::make_pair(0, 1), clock.readings()) << "while a logger needs the fraction";

        OwnLogger other(log::Mask_DATETIME);
        other.write.setTimeFormat(log::TimeFormat_OFFSET_MS);
        exact.write.setTimeFormat(log::TimeFormat_UTC);
        dateOf(exact);
        EXPECT_EQ(std::make_pair(0, 1), clock.readings()) << "the other logger needs it";
        other.write.setTimeFormat(log::TimeFormat_UTC_MS);
        other.write.setTimeFormat(log::TimeFormat_LOCAL);
        EXPECT_EQ("2026-11-14T15:05:20Z", dateOf(exact));
        EXPECT_EQ(std::make_pair(1, 0), clock.readings());
        exact.write.setTimeFormat(log::TimeFormat_UTC_US);
    }
    dateOf(plain);
    EXPECT_EQ(std::make_pair(1, 0), clock.readings()) << "the logger that needed it has been destroyed";
}

TEST(TimeFormat, StatementThatBeganBeforeTheSettingHasNoFraction)
{
    FixedClock clock(NOON, 123456789);
    OwnLogger logger(log::Mask_DATETIME);
    Module module("shop", logger.write);
    const auto change = [&logger] {
        logger.write.setTimeFormat(log::TimeFormat_UTC_US);
        return "text";
    };
    NIM_LOG_TO(module, Severity_ERROR) << change();
    EXPECT_EQ("2026-11-14T15:05:20.000000Z : text\n", logger.taken());
    // The thread's record now contains a fraction, which is not that of the third statement.
    EXPECT_EQ("2026-11-14T15:05:20.123456Z", dateOf(logger));
    logger.write.setTimeFormat(log::TimeFormat_LOCAL);
    NIM_LOG_TO(module, Severity_ERROR) << change();
    EXPECT_EQ("2026-11-14T15:05:20.000000Z : text\n", logger.taken());
}

TEST(TimeFormat, StreamHeaderKeepsItsForm)
{
    const FixedClock clock(NOON, 123456789);
    DefaultLogger logger;
    logger->setTimeFormat(log::TimeFormat_UTC);
    logger->setOutputMask(log::Mask_DATETIME);
    EXPECT_THROW(logger->setPath("/nowhere/at/all"), std::exception);
    logger->setStream(asIos(logger.sink));
    logger.taken();
    NIM_LOG(Severity_ERROR) << "text";
    EXPECT_THAT(logger.taken(), testing::MatchesRegex("Sat Nov 14 15:05:20 UTC 2026 [^\n]* Write: Log "
                                                      "Configuration:\n(\t[^\n]*\n)*2026-11-14T15:05:20Z : "
                                                      "text\n"));
}

/** A logger that sees each line on its way. */
struct Subclass : log::Write
{
    using Write::log;
    void log(const String& msg) override
    {
        line = msg;
    }

    String line;
};

TEST(TimeFormat, AppliesToRecordsOfASubclass)
{
    const FixedClock clock(NOON, 123456789);
    std::ostringstream sink;
    Subclass logger;
    logger.setStream(asIos(sink));
    logger.setOutputMask(log::Mask_DATETIME);
    Module module("shop", logger);
    NIM_LOG_TO(module, Severity_ERROR) << "text";
    EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026 : text", logger.line);
    logger.setTimeFormat(log::TimeFormat_UTC_MS);
    NIM_LOG_TO(module, Severity_ERROR) << "text";
    EXPECT_EQ("2026-11-14T15:05:20.123Z : text", logger.line);
}

TEST(TimeFormat, IsRefusedByALoggerOfAnotherKind)
{
    const FixedClock clock(NOON, 123456789);
    OwnLogger other;
    other.write.setTimeFormat(log::TimeFormat_UTC_MS);
    PlainLog logger;
    EXPECT_EQ(log::TimeFormat_LOCAL, logger.getTimeFormat());
    EXPECT_THROW(logger.setTimeFormat(log::TimeFormat_UTC), std::bad_cast);
    logger.mask = log::Mask_DATETIME;
    const log::Header header(log::Severity_ERROR, "x/Source", 7);
    EXPECT_EQ("Sat Nov 14 15:05:20 UTC 2026 : ", logger.format(Module::DEFAULT_INSTANCE, header));
}

TEST(TimeFormat, IsReportedByName)
{
    DefaultLogger logger;
    logger->setTimeFormat(log::TimeFormat_UTC_MS);
    logger->setTimeFormat(log::TimeFormat_UTC_MS);
    EXPECT_EQ(changed("TimeFormat", "LOCAL", "UTC_MS"), logger.taken());
    logger->setTimeFormat("LOCAL");
    EXPECT_EQ(changed("TimeFormat", "UTC_MS", "LOCAL"), logger.taken());
}

TEST(TimeFormat, ReconfigurationReportsItByName)
{
    const FixedClock clock(NOON, 123456789);
    const logfiletest::Folder folder;
    DefaultLogger logger;
    com::kor::dal::nim::io::Properties settings;
    settings.setProperty("com.kor.dal.nim.log.Control.timeFormat", "UTC_MS");
    settings.setProperty("com.kor.dal.nim.log.Control.file", folder / "a.log");
    settings.setProperty("com.kor.dal.nim.log.Control.output.mask", "DATETIME");
    logger->reconfigure(settings);
    EXPECT_THAT(logfiletest::contentOf(folder / "a.log"),
                testing::AllOf(testing::HasSubstr("\n2026-11-14T15:05:20.123Z : Changing logging settings: "
                                                  "OutputPath TimeFormat OutputMask\n"),
                               testing::HasSubstr("\n\tTimeFormat\n\t\told: LOCAL\n\t\tnew: UTC_MS\n")));
}

TEST(TimeFormat, HasANameForEachForm)
{
    for (const char* const name : {"LOCAL", "UTC", "UTC_MS", "UTC_US", "OFFSET", "OFFSET_MS", "OFFSET_US"}) {
        EXPECT_EQ(name, log::getTimeFormatName(log::getTimeFormatId(name)));
    }
    EXPECT_EQ(log::TimeFormat_OFFSET_US, log::getTimeFormatId("OFFSET_US"));
    const String unknown = "Unrecognized NIM Log Time Format";
    EXPECT_EQ(unknown, textOf<std::out_of_range>([] { log::getTimeFormatId("utc"); }));
    EXPECT_EQ(unknown, textOf<std::out_of_range>([] { log::getTimeFormatId(""); }));
    EXPECT_EQ(unknown, textOf<std::out_of_range>([] { log::getTimeFormatName(TimeFormat(7)); }));
}

TEST(TimeFormat, RejectedValueChangesNothing)
{
    log::Write logger;
    logger.setTimeFormat(log::TimeFormat_UTC);
    EXPECT_EQ("Illegal Time Format", textOf<std::out_of_range>([&] { logger.setTimeFormat(TimeFormat(7)); }));
    EXPECT_EQ("Unrecognized NIM Log Time Format",
              textOf<std::out_of_range>([&] { logger.setTimeFormat("ISO"); }));
    EXPECT_EQ(log::TimeFormat_UTC, logger.getTimeFormat());
}

TEST(TimeFormat, IsAKeyOfTheConfiguration)
{
    log::Write logger;
    com::kor::dal::nim::io::Properties settings;
    settings.setProperty("com.kor.dal.nim.log.Control.timeFormat", "UTC_US");
    logger.setConfiguration(settings);
    EXPECT_EQ(log::TimeFormat_UTC_US, logger.getTimeFormat());
    logger.setConfiguration(com::kor::dal::nim::io::Properties());
    EXPECT_EQ(log::TimeFormat_UTC_US, logger.getTimeFormat()) << "a key that is absent changes nothing";
    settings.setProperty("com.kor.dal.nim.log.Control.timeFormat", "utc");
    EXPECT_EQ("Unrecognized NIM Log Time Format",
              textOf<std::out_of_range>([&] { logger.setConfiguration(settings); }));
}

TEST(TimeFormat, EachRecordHasOneFormWhileItChanges)
{
    OwnLogger logger(log::Mask_DATETIME);
    logger.write.setTimeFormat(log::TimeFormat_UTC);
    Module module("shop", logger.write);
    constexpr int RECORDS = 2000;
    std::thread writer([&module] {
        for (int i = 0; i < RECORDS; ++i) {
            NIM_LOG_TO(module, Severity_ERROR) << "text";
        }
    });
    for (int i = 0; i < RECORDS; ++i) {
        logger.write.setTimeFormat(i % 2 == 0 ? log::TimeFormat_OFFSET_US : log::TimeFormat_UTC);
        OwnLogger other;
        other.write.setTimeFormat(log::TimeFormat_UTC_MS);
    }
    writer.join();
    std::istringstream lines(logger.taken());
    int count = 0;
    for (String line; std::getline(lines, line); ++count) {
        ASSERT_THAT(line, testing::MatchesRegex(
                              "20[0-9-]+T[0-9:]+(Z|\\.[0-9][0-9][0-9][0-9][0-9][0-9][+-][0-9:]+) : text"));
    }
    EXPECT_EQ(RECORDS, count);
}

}
