#define NIM_LOG_FILE "ModuleLimitsTest"

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include "CoarseClock.hpp"
#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

using namespace logtest;
using com::kor::dal::nim::io::Properties;
using log::Control;
using log::Module;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

constexpr char KEY[] = "com.kor.dal.nim.log.Control.modules.limits";
/** The prefix of the reports of limits. */
constexpr char WARNING[] = "com.kor.dal.nim.log.internal WARNING Write : ";

Control::ModuleLimit limitOf(const String& modules, std::uint32_t recordsPerSecond, std::uint32_t burst,
                             log::Severity highest = log::Severity_WARNING)
{
    return {modules, recordsPerSecond, burst, highest};
}

String beginOf(const String& module, const String& records)
{
    return WARNING + ("The module \"" + module + "\" exceeds " + records)
           + " per second: further ones are held back\n";
}

String endOf(const String& module, const String& records)
{
    return WARNING + ("The module \"" + module + "\" is within its limit again: " + records) + " held back\n";
}

/** Returns the limits as one string. */
String textOf(const Control& logger)
{
    String text;
    for (const Control::ModuleLimit& limit : logger.getModuleLimits()) {
        text += limit.modules + '=' + std::to_string(limit.recordsPerSecond) + '/'
                + std::to_string(limit.burst) + '/' + getSeverityName(limit.highest) + ' ';
    }
    return text;
}

/** A logger on a text stream, while the clock is stopped. */
class ModuleLimitsTest : public testing::Test
{
protected:
    ModuleLimitsTest() : shop("shop", logger.write), other("other", logger.write)
    {
        logger.write.setOutputMask(FIXED_FIELDS);
    }

    /** Writes records at a severity, and returns what was logged. */
    String write(Module& module, int number, log::Severity severity = log::Severity_WARNING)
    {
        for (int i = 0; i < number; ++i) {
            NIM_LOG_TO(module, severity) << "text";
        }
        return logger.taken();
    }
    static String records(const String& module, int number, const String& severity = "WARNING")
    {
        String text;
        for (int i = 0; i < number; ++i) {
            text += module + ' ' + severity + " ModuleLimitsTest : text\n";
        }
        return text;
    }
    /** Lets the time pass after which a flood is over. */
    void passQuietTime()
    {
        clock.advance(milliseconds(10000));
    }

    StoppedClock clock;
    OwnLogger logger;
    Module shop;
    Module other;
};

TEST_F(ModuleLimitsTest, BurstPassesAndThenTheRate)
{
    logger.write.setModuleLimits({limitOf("shop", 10, 3)});
    EXPECT_EQ(records("shop", 3) + beginOf("shop", "10 records"), write(shop, 5));
    clock.advance(milliseconds(99));
    EXPECT_EQ("", write(shop, 1));
    clock.advance(milliseconds(1));
    EXPECT_EQ(records("shop", 1), write(shop, 2));
    clock.advance(milliseconds(250));
    EXPECT_EQ(records("shop", 2), write(shop, 4));
    clock.advance(milliseconds(5000));
    EXPECT_EQ(records("shop", 3), write(shop, 4));
}

TEST_F(ModuleLimitsTest, BeginningAndEndAreReportedOnceWithTheNumber)
{
    logger.write.setModuleLimits({limitOf("shop", 1, 2)});
    EXPECT_EQ(records("shop", 2) + beginOf("shop", "1 record"), write(shop, 1000));
    clock.advance(milliseconds(9000));
    EXPECT_EQ(records("shop", 2), write(shop, 12));
    clock.advance(milliseconds(9999));
    EXPECT_EQ(records("other", 1), write(other, 1));
    clock.advance(milliseconds(1));
    // Any record of the logger detects the end.
    EXPECT_EQ(endOf("shop", "1008 records were") + records("other", 1), write(other, 1));
    EXPECT_EQ(records("shop", 2) + beginOf("shop", "1 record"), write(shop, 3));
    passQuietTime();
    EXPECT_EQ(endOf("shop", "1 record was") + records("shop", 1), write(shop, 1));
}

TEST_F(ModuleLimitsTest, ErrorsPassUnlessTheLimitIncludesThem)
{
    logger.write.setModuleLimits({limitOf("shop", 1, 1), limitOf("other", 1, 1, log::Severity_ERROR)});
    EXPECT_EQ(records("shop", 1) + beginOf("shop", "1 record"), write(shop, 2));
    EXPECT_EQ(records("shop", 2, "ERROR"), write(shop, 2, log::Severity_ERROR));
    EXPECT_EQ(records("shop", 2, "FATAL"), write(shop, 2, log::Severity_FATAL));
    EXPECT_EQ(records("other", 1, "ERROR") + beginOf("other", "1 record"),
              write(other, 2, log::Severity_ERROR));
    EXPECT_EQ(records("other", 2, "FATAL"), write(other, 2, log::Severity_FATAL));
    logger.write.setModuleLimits({limitOf("shop", 1, 1, log::Severity_FATAL)});
    logger.taken();
    EXPECT_EQ(records("shop", 1, "FATAL") + beginOf("shop", "1 record"), write(shop, 3, log::Severity_FATAL));
}

TEST_F(ModuleLimitsTest, LimitOfALowSeverityDoesNotApplyToHigherOnes)
{
    logger.write.setSeverity(log::Severity_NONE);
    logger.write.setModuleLimits({limitOf("shop", 1, 1, log::Severity_INFO)});
    EXPECT_EQ(records("shop", 1, "INFO") + beginOf("shop", "1 record"), write(shop, 2, log::Severity_INFO));
    EXPECT_EQ("", write(shop, 2, log::Severity_TRACE));
    EXPECT_EQ(records("shop", 2, "NOTICE"), write(shop, 2, log::Severity_NOTICE));
}

TEST_F(ModuleLimitsTest, FirstMatchingLimitAppliesToEachModuleSeparately)
{
    Module disks("shop.disks", logger.write);
    Module till("shop.till", logger.write);
    logger.write.setModuleLimits({limitOf("shop.till", 1, 3), limitOf("shop.*", 1, 2), limitOf("*", 1, 1)});
    EXPECT_EQ(records("shop.till", 3) + beginOf("shop.till", "1 record"), write(till, 4));
    EXPECT_EQ(records("shop.disks", 2) + beginOf("shop.disks", "1 record"), write(disks, 4));
    EXPECT_EQ(records("shop", 1) + beginOf("shop", "1 record"), write(shop, 4));
    EXPECT_EQ(records("other", 1) + beginOf("other", "1 record"), write(other, 4));
    passQuietTime();
    const String text = write(shop, 1);
    for (const char* const name : {"shop.till", "shop.disks", "shop", "other"}) {
        EXPECT_THAT(text, HasSubstr("The module \"" + String(name) + "\" is within its limit again: "));
    }
}

TEST_F(ModuleLimitsTest, ModuleWithoutALimitIsNotLimited)
{
    logger.write.setModuleLimits({limitOf("shop.*", 1, 1), limitOf("shopping", 1, 1)});
    EXPECT_EQ(records("shop", 100), write(shop, 100));
}

TEST_F(ModuleLimitsTest, ReportsPassEverySeveritySetting)
{
    logger.write.setSeverity(log::Severity_FATAL);
    logger.write.setModuleLimits({limitOf("*", 1, 1, log::Severity_FATAL)});
    EXPECT_EQ(records("shop", 1, "FATAL") + beginOf("shop", "1 record"), write(shop, 2, log::Severity_FATAL));
    passQuietTime();
    EXPECT_EQ(endOf("shop", "1 record was") + records("shop", 1, "FATAL"),
              write(shop, 1, log::Severity_FATAL));
}

TEST_F(ModuleLimitsTest, OtherLimitsEndTheFlood)
{
    logger.write.setModuleLimits({limitOf("shop", 1, 1)});
    write(shop, 5);
    logger.write.setModuleLimits({limitOf("shop", 1, 1)});
    EXPECT_EQ("", write(shop, 5)) << "equal limits";
    logger.write.setModuleLimits({limitOf("shop", 1, 2)});
    EXPECT_EQ(endOf("shop", "9 records were"), logger.taken());
    EXPECT_EQ(records("shop", 2) + beginOf("shop", "1 record"), write(shop, 5));
    logger.write.setModuleLimits({});
    EXPECT_EQ(endOf("shop", "3 records were") + records("shop", 5), write(shop, 5));
}

TEST_F(ModuleLimitsTest, StatisticsCountTheRecordsHeldBack)
{
    log::Statistics::enable();
    logger.write.setModuleLimits({limitOf("shop", 1, 2, log::Severity_ERROR)});
    write(shop, 5);
    write(shop, 3, log::Severity_ERROR);
    const log::Statistics statistics = logger.write.getStatistics();
    EXPECT_EQ(3u, statistics.records[log::Severity_WARNING].heldBack);
    EXPECT_EQ(3u, statistics.records[log::Severity_ERROR].heldBack);
    EXPECT_EQ(3u, statistics.records[log::Severity_WARNING].written) << "with the report";
    EXPECT_EQ(0u, statistics.records[log::Severity_ERROR].written);
    EXPECT_EQ(6u, statistics.total().heldBack);
}

TEST_F(ModuleLimitsTest, RejectsLimitsOutOfRange)
{
    const log::Severity none = log::Severity_NONE;
    const log::Severity above = static_cast<log::Severity>(8);
    logger.write.setModuleLimits({limitOf("shop", 1000000, 1000000, log::Severity_TRACE)});
    for (const Control::ModuleLimit& bad :
         {limitOf("", 1, 1), limitOf("a b", 1, 1), limitOf("a\t", 1, 1), limitOf("a", 0, 1),
          limitOf("a", 1, 0), limitOf("a", 1000001, 1), limitOf("a", 1, 1000001), limitOf("a", 1, 1, none),
          limitOf("a", 1, 1, above)}) {
        EXPECT_EQ("Illegal Module Limit", logtest::textOf<std::out_of_range>([&] {
                      logger.write.setModuleLimits({limitOf("good", 1, 1), bad});
                  }));
    }
    EXPECT_EQ("shop=1000000/1000000/TRACE ", textOf(logger.write));
}

TEST_F(ModuleLimitsTest, OtherLoggersHaveNoLimits)
{
    PlainLog plain;
    EXPECT_THROW(plain.setModuleLimits({limitOf("shop", 1, 1)}), std::bad_cast);
    EXPECT_EQ("", textOf(plain));
}

TEST_F(ModuleLimitsTest, ReportThatFailsIsWrittenWithALaterRecord)
{
    const logfiletest::Folder folder;
    const auto failOnce = [&](Module& module) {
        logger.write.setPath(folder / "no/such/a.log");
        EXPECT_ANY_THROW(NIM_LOG_TO(module, Severity_WARNING) << "lost");
        logger.write.setStream(asIos(logger.sink));
    };
    logger.write.setModuleLimits({limitOf("shop", 1, 1)});
    EXPECT_EQ(records("shop", 1), write(shop, 1));
    failOnce(shop);
    EXPECT_EQ(beginOf("shop", "1 record"), write(shop, 2));
    passQuietTime();
    failOnce(other);
    EXPECT_EQ(endOf("shop", "3 records were") + records("other", 1), write(other, 1));
}

TEST_F(ModuleLimitsTest, FloodsThatEndInARecordThatFailsAreAllReportedLater)
{
    const logfiletest::Folder folder;
    Module third("third", logger.write);
    logger.write.setModuleLimits({limitOf("shop", 1, 1), limitOf("other", 1, 1)});
    write(shop, 3);
    write(other, 4);
    passQuietTime();
    logger.write.setPath(folder / "no/such/a.log");
    EXPECT_ANY_THROW(NIM_LOG_TO(third, Severity_WARNING) << "lost");
    logger.write.setStream(asIos(logger.sink));
    const String ends[] = {endOf("shop", "2 records were"), endOf("other", "3 records were")};
    // In the order of a hash table.
    EXPECT_THAT(write(third, 1), testing::AnyOf(ends[0] + ends[1] + records("third", 1),
                                                ends[1] + ends[0] + records("third", 1)));
}

/** A subclass, whose lines are formatted under the lock. */
class Subclass : public log::Write
{};

TEST_F(ModuleLimitsTest, LimitsApplyToSubclasses)
{
    log::Statistics::enable();
    Subclass write;
    write.setStream(asIos(logger.sink));
    write.setOutputMask(FIXED_FIELDS);
    Module module("derived", write);
    write.setModuleLimits({limitOf("derived", 1, 1)});
    EXPECT_EQ(records("derived", 1) + beginOf("derived", "1 record"), this->write(module, 3));
    EXPECT_EQ(2u, write.getStatistics().total().heldBack);
}

TEST_F(ModuleLimitsTest, RecordThatEndsAFloodOnSeveralThreadsIsWrittenOnce)
{
    constexpr int THREADS = 4;
    constexpr int EACH = 500;
    logger.write.setModuleLimits({limitOf("shop", 1, 10)});
    const auto onThreads = [&](const auto& body) {
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back(body);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    };
    const auto writeEach = [this] {
        for (int i = 0; i < EACH; ++i) {
            NIM_LOG_TO(shop, Severity_WARNING) << "text";
        }
    };
    onThreads(writeEach);
    const String text = logger.taken();
    EXPECT_EQ(records("shop", 10).size() + beginOf("shop", "1 record").size(), text.size());
    EXPECT_THAT(text, HasSubstr(beginOf("shop", "1 record")));
    passQuietTime();
    onThreads([this] { NIM_LOG_TO(other, Severity_WARNING) << "text"; });
    const String after = logger.taken();
    EXPECT_EQ(records("other", THREADS).size() + endOf("shop", "1990 records were").size(), after.size());
    EXPECT_THAT(after, HasSubstr(endOf("shop", "1990 records were")));
}

TEST(ModuleLimits, DefaultLoggerReportsEachChange)
{
    DefaultLogger logger;
    logger->setModuleLimits({limitOf("shop.*", 10, 50), limitOf("db", 5, 5, log::Severity_ERROR)});
    EXPECT_EQ(changed("ModuleLimits", "\"\"", "\"shop.*=10/50 db=5/5/ERROR\""), logger.taken());
    logger->setModuleLimits({limitOf("shop.*", 10, 50), limitOf("db", 5, 5, log::Severity_ERROR)});
    EXPECT_EQ("", logger.taken());
    logger->setModuleLimits({});
    EXPECT_EQ(changed("ModuleLimits", "\"shop.*=10/50 db=5/5/ERROR\"", "\"\""), logger.taken());
}

Properties settingsOf(const String& value)
{
    Properties settings;
    settings.setProperty(KEY, value);
    return settings;
}

TEST(ModuleLimitsSetting, ReadsEveryForm)
{
    const std::pair<const char*, const char*> values[] = {
        {"shop=10", "shop=10/10/WARNING "},
        {"shop.*=10/50 \t *=1/2/FATAL", "shop.*=10/50/WARNING *=1/2/FATAL "},
        {"a=b=1000000/1000000/TRACE", "a=b=1000000/1000000/TRACE "},
    };
    for (const auto& [value, limits] : values) {
        log::Write logger;
        logger.reconfigure(settingsOf(value));
        EXPECT_EQ(limits, textOf(logger)) << value;
        log::Write configured;
        configured.setConfiguration(settingsOf(value));
        EXPECT_EQ(limits, textOf(configured)) << value;
        logger.reconfigure(Properties());
        EXPECT_EQ("", textOf(logger)) << "the default";
        configured.setConfiguration(Properties());
        EXPECT_EQ(limits, textOf(configured)) << "an absent key changes nothing";
    }
}

TEST(ModuleLimitsSetting, RejectsBadValues)
{
    for (const char* const value : {"shop", "shop=", "=10", "shop=0", "shop=-1", "shop=10/", "shop=10/0",
                                    "shop=10/5/", "shop=10/5/error", "shop=10/5/NONE", "shop=10/5/ERROR/",
                                    "shop=10/ERROR", "shop=1000001", "shop=1.5", "shop=10 all", " "}) {
        log::Write logger;
        EXPECT_EQ(
            String("Bad log configuration: ") + KEY + " = \"" + value
                + "\" must be limits such as shop.*=10/50 (records per second and burst, each from 1 to "
                  "1000000) or shop.*=10/50/ERROR, separated by white space",
            logtest::textOf<std::invalid_argument>([&] { logger.reconfigure(settingsOf(value)); }));
        EXPECT_EQ("Illegal Module Limit",
                  logtest::textOf<std::out_of_range>([&] { logger.setConfiguration(settingsOf(value)); }));
        EXPECT_EQ("", textOf(logger));
    }
}

TEST(ModuleLimitsSetting, ReconfigurationEndsAFlood)
{
    const StoppedClock clock;
    OwnLogger logger;
    Module module("shop", logger.write);
    logger.write.setModuleLimits({limitOf("shop", 1, 1)});
    for (int i = 0; i < 3; ++i) {
        NIM_LOG_TO(module, Severity_WARNING) << i;
    }
    logger.taken();
    const logfiletest::Folder folder;
    Properties settings = settingsOf("shop=1");
    settings.setProperty("com.kor.dal.nim.log.Control.output.mask", "SEVERITY");
    settings.setProperty("com.kor.dal.nim.log.Control.file", folder / "a.log");
    logger.write.reconfigure(settings);
    EXPECT_EQ("", logfiletest::contentOf(folder / "a.log")) << "the same limits";
    settings.setProperty(KEY, "");
    logger.write.reconfigure(settings);
    EXPECT_EQ("WARNING : The module \"shop\" is within its limit again: 2 records were held back\n",
              logfiletest::contentOf(folder / "a.log"));
}

}
