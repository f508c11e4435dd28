#include <dalnim/log/Statistics.hpp>

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace logtest;
using log::Module;
using log::Statistics;
using log::Write;
using logfiletest::CapturedCerr;
using logfiletest::contentOf;
using logfiletest::create;
using logfiletest::createFullFile;
using logfiletest::Folder;

/** A logger without prefixes and a module of it, in a directory, with standard error captured. */
class StatisticsTest : public testing::Test
{
protected:
    StatisticsTest() : module("tests", logger)
    {
        Statistics::enable();
        logger.setOutputMask(0);
    }

    Statistics::Records recordsOf(log::Severity severity) const
    {
        return logger.getStatistics().records[severity];
    }

    const Folder folder;
    const String path = folder / "server.log";
    CapturedCerr err;
    Write logger;
    Module module;
};

TEST(Statistics, NothingIsCountedUntilTheyAreEnabled)
{
    if (Statistics::isEnabled()) {
        GTEST_SKIP() << "another test of this process has enabled them";
    }
    const Folder folder;
    Write logger;
    logger.setPath(folder / "server.log");
    Module module("tests", logger);
    NIM_LOG_TO(module, Severity_ERROR) << "not counted";
    EXPECT_EQ(0u, logger.getStatistics().total().written);
    Statistics::enable();
    EXPECT_TRUE(Statistics::isEnabled());
    NIM_LOG_TO(module, Severity_ERROR) << "counted";
    EXPECT_EQ(1u, logger.getStatistics().total().written);
}

TEST_F(StatisticsTest, NewLoggerHasDoneNothing)
{
    const Statistics statistics = logger.getStatistics();
    for (const Statistics::Records& records : statistics.records) {
        EXPECT_EQ(0u, records.written + records.bytes + records.rescued + records.failed + records.heldBack);
    }
    EXPECT_EQ(0u, statistics.rotations + statistics.failedRotations + statistics.refusedStatements);
}

TEST_F(StatisticsTest, RecordsAndTheirBytesAreCountedBySeverity)
{
    logger.setPath(path);
    NIM_LOG_TO(module, Severity_WARNING) << "1234567   ";
    NIM_LOG_TO(module, Severity_ERROR) << "1";
    NIM_LOG_TO(module, Severity_ERROR) << "";
    NIM_LOG_TO(module, Severity_DEBUG) << "disabled";
    log::Header other(static_cast<log::Severity>(77), "", 1);
    logger.log(module, other, true);
    EXPECT_EQ(" : 1234567\n : 1\n : \n : \n", contentOf(path));
    EXPECT_EQ(1u, recordsOf(log::Severity_WARNING).written);
    EXPECT_EQ(11u, recordsOf(log::Severity_WARNING).bytes);
    EXPECT_EQ(2u, recordsOf(log::Severity_ERROR).written);
    EXPECT_EQ(9u, recordsOf(log::Severity_ERROR).bytes);
    EXPECT_EQ(0u, recordsOf(log::Severity_DEBUG).written);
    EXPECT_EQ(1u, recordsOf(log::Severity_NONE).written) << "of a value that is not a severity";
    const Statistics::Records total = logger.getStatistics().total();
    EXPECT_EQ(4u, total.written);
    EXPECT_EQ(contentOf(path).size(), total.bytes);
}

TEST_F(StatisticsTest, RejectedRecordsAreCountedAsRescued)
{
    createFullFile(path);
    logger.setPath(path);
    NIM_LOG_TO(module, Severity_ERROR) << "1";
    NIM_LOG_TO(module, Severity_ERROR) << "2";
    EXPECT_EQ(2u, recordsOf(log::Severity_ERROR).rescued);
    EXPECT_EQ(0u, recordsOf(log::Severity_ERROR).written);
    EXPECT_EQ(0u, recordsOf(log::Severity_ERROR).bytes);
    EXPECT_EQ(0u, recordsOf(log::Severity_ERROR).failed);
}

TEST_F(StatisticsTest, RecordsOfALogThatCannotBeOpenedFailOrAreRescued)
{
    logger.setPath(folder / "no/such/server.log");
    EXPECT_ANY_THROW(NIM_LOG_TO(module, Severity_ERROR) << "1");
    EXPECT_EQ(1u, recordsOf(log::Severity_ERROR).failed);
    logger.setFallback(true);
    NIM_LOG_TO(module, Severity_ERROR) << "2";
    EXPECT_EQ(1u, recordsOf(log::Severity_ERROR).failed);
    EXPECT_EQ(1u, recordsOf(log::Severity_ERROR).rescued);
    EXPECT_EQ(0u, recordsOf(log::Severity_ERROR).written);
}

TEST_F(StatisticsTest, RotationsAndFailedOnesAreCounted)
{
    logger.setPath(path);
    logger.setMaxFileSize(10);
    for (int i = 0; i < 3; ++i) {
        NIM_LOG_TO(module, Severity_ERROR) << "0123456789";
    }
    EXPECT_EQ(3u, logger.getStatistics().rotations);
    EXPECT_EQ(0u, logger.getStatistics().failedRotations);
    // With the number of a rotated file, the name would be too long.
    const String longest = folder / String(255, 'l');
    logger.setPath(longest);
    NIM_LOG_TO(module, Severity_ERROR) << "0123456789";
    EXPECT_EQ(3u, logger.getStatistics().rotations);
    EXPECT_EQ(1u, logger.getStatistics().failedRotations);
    EXPECT_EQ(4u, recordsOf(log::Severity_ERROR).written);
}

TEST_F(StatisticsTest, LoggersThatShareAFileCountTheirOwnRecords)
{
    Write sharing;
    sharing.setOutputMask(0);
    Module owner("com_kor_dal_nim_log_module_CIMOM", logger);
    sharing.registerModule(owner);
    logger.setPath(path);
    sharing.setStream("CIMOM");
    NIM_LOG_TO(module, Severity_ERROR) << "1";
    writeError(sharing, "22");
    writeError(sharing, "333");
    sharing.unregisterModule(owner);
    EXPECT_EQ(" : 1\n : 22\n : 333\n", contentOf(path));
    EXPECT_EQ(5u, logger.getStatistics().total().bytes);
    EXPECT_EQ(2u, sharing.getStatistics().total().written);
    EXPECT_EQ(13u, sharing.getStatistics().total().bytes);
}

/** A subclass, whose lines are formatted under the lock, and that may write lines of its own. */
class Subclass : public Write
{
public:
    using Write::log;
    void logLine(const String& line)
    {
        Write::log(line);
    }
};

TEST_F(StatisticsTest, RecordsOfASubclassAreCounted)
{
    Subclass derived;
    derived.setOutputMask(0);
    derived.setPath(path);
    Module own("own", derived);
    NIM_LOG_TO(own, Severity_WARNING) << "123  ";
    derived.logLine("a line \n");
    EXPECT_EQ(" : 123\na line\n", contentOf(path));
    const Statistics statistics = derived.getStatistics();
    EXPECT_EQ(1u, statistics.records[log::Severity_WARNING].written);
    EXPECT_EQ(7u, statistics.records[log::Severity_WARNING].bytes);
    EXPECT_EQ(1u, statistics.records[log::Severity_NONE].written);
    EXPECT_EQ(7u, statistics.records[log::Severity_NONE].bytes);
}

TEST_F(StatisticsTest, OtherLoggersHaveNone)
{
    PlainLog plain;
    std::ostringstream sink;
    plain.setStream(asIos(sink));
    Module own("own", plain);
    NIM_LOG_TO(own, Severity_ERROR) << "text";
    EXPECT_EQ(0u, plain.getStatistics().total().written);
}

TEST_F(StatisticsTest, CanBeReadWhileThreadsLog)
{
    constexpr int THREADS = 3;
    constexpr std::uint64_t EACH = 2000;
    logger.setPath(path);
    std::atomic<int> running{THREADS};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            for (std::uint64_t n = 0; n < EACH; ++n) {
                NIM_LOG_TO(module, Severity_WARNING) << "text";
            }
            --running;
        });
    }
    std::uint64_t last = 0;
    while (running != 0) {
        const std::uint64_t written = recordsOf(log::Severity_WARNING).written;
        EXPECT_LE(last, written);
        last = written;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(THREADS * EACH, recordsOf(log::Severity_WARNING).written);
    EXPECT_EQ(THREADS * EACH * 8, recordsOf(log::Severity_WARNING).bytes);
}

}
