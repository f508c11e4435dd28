#include "NimhostFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

namespace {

using support::ChildProcess;
using support::readFile;
using support::writeFile;
using testing::HasSubstr;
using testing::MatchesRegex;

class NimhostTest : public NimhostFixture
{};

TEST_F(NimhostTest, InvalidOptionsAreRejectedWithOneLine)
{
    expectRejected({"--bogus"}, "nimhost: unknown option --bogus");
    expectRejected({"--threads"}, "nimhost: option --threads requires a value");
    expectRejected({"--threads", "0"}, "nimhost: --threads requires a number from 1 to 1000, not \"0\"");
    expectRejected({"--threads", "4x"}, "nimhost: --threads requires a number from 1 to 1000, not \"4x\"");
    expectRejected({"--seconds", "-1"},
                   "nimhost: --seconds requires a number from 1 to 1000000000, not \"-1\"");
    expectRejected({"--records", ""},
                   "nimhost: --records requires a number from 1 to 1000000000000, not \"\"");
    expectRejected({"--config", ""}, "nimhost: option --config requires a value");
    expectRejected({"--status", ""}, "nimhost: option --status requires a value");
    expectRejected({"--seconds", "1", "--threads", "1", "--seconds", "2"},
                   "nimhost: option --seconds is given twice");
    expectRejected({"--config", "a", "--config", "a"}, "nimhost: option --config is given twice");
    expectRejected({"--records", "1", "d.xml"},
                   "nimhost: --records limits the sources: with documents, it requires --threads");
    expectRejected({"-", "d.xml", "-"}, "nimhost: standard input, \"-\", is given twice");
}

TEST_F(NimhostTest, ConfigurationThatCannotBeReadIsRejected)
{
    const std::string missing = scratch.file("missing.properties");
    expectRejected({"--config", missing}, "nimhost: cannot read " + missing + ": No such file or directory");
    expectRejected({"--config", scratch.path()},
                   "nimhost: cannot read " + scratch.path() + ": Is a directory");
}

TEST_F(NimhostTest, MissingIncludeIsRejected)
{
    const std::string file = configure("");
    std::filesystem::remove(scratch.file("test-log.properties"));
    expectRejected({"--config", file}, "nimhost: ERROR: test.properties:1: failed to open include file: \""
                                           + scratch.file("test-log.properties") + "\"");
}

TEST_F(NimhostTest, InvalidValueIsRejected)
{
    const std::string file = configure(fileSettings(LOG + "severity.id = LOUD\n"));
    expectRejected(
        {"--config", file},
        "nimhost: " + file + ": Bad log configuration: " + LOG
            + "severity.id = \"LOUD\" must be one of NONE, TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR "
              "and FATAL");

    configure(fileSettings(""), "/source/rate = many\n");
    expectRejected({"--config", file},
                   "nimhost: " + file
                       + ": source/rate of source-0 must be a number of at least 0, not \"many\"");
    configure(fileSettings(""), "pool/threads = 0\n");
    expectRejected({"--config", file},
                   "nimhost: " + file + ": threads of pool must be a number of at least 1, not \"0\"");
    configure(fileSettings(""), "source-3/source/block = yes\n");
    expectRejected({"--config", file},
                   "nimhost: " + file + ": source/block of source-3 must be true or false, not \"yes\"");
}

TEST_F(NimhostTest, PrintsItsUsage)
{
    ChildProcess host(command({"--help"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.output(),
                HasSubstr("usage: nimhost [--config FILE] [--threads N] [--seconds S] [--records N]\n"
                          "               [--service] [--status FILE] [--metrics FILE] [DOCUMENT...]\n"));
    EXPECT_EQ(host.errors(), "");
}

TEST_F(NimhostTest, EveryRecordOfSeveralThreadsIsInTheRotatedFiles)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "output.mask = MODULENAME SEVERITY\n"
                               + LOG + "maxFileSize = 20000\n"));
    ChildProcess host(command({"--config", file, "--threads", "4", "--records", "4000"}), scratch.path());
    ASSERT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");

    std::set<std::string> records;
    std::size_t lines = 0;
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.file("log"))) {
        ++files;
        std::istringstream text(readFile(entry.path()));
        for (std::string line; std::getline(text, line);) {
            if (line.find("answered") != std::string::npos) {
                ++lines;
                EXPECT_THAT(line, MatchesRegex("nimhost\\.source-[0-3] (INFO|NOTICE) : request [0-9]+ "
                                               "of source-[0-3] answered"));
                records.insert(line);
            }
        }
    }
    EXPECT_EQ(records.size(), lines) << "a record stands twice";
    EXPECT_GE(files, 5U);

    // One of four records of a source is disabled. A source may end within a group of four.
    EXPECT_GE(lines, 3000U);
    EXPECT_LE(lines, 3012U);
    EXPECT_EQ(tableRow(host.output(), "source records written"), lines);
    EXPECT_EQ(tableRow(host.output(), "source records disabled"), 4000 - lines);
    EXPECT_EQ(tableRow(host.output(), "tasks run"), 4000U);
    EXPECT_EQ(tableRow(host.output(), "tasks rejected (pool full)"), 0U);
    EXPECT_EQ(tableRow(host.output(), "tasks that failed"), 0U);
    EXPECT_EQ(tableRow(host.output(), "tasks with the wrong token"), 0U);
    EXPECT_EQ(tableRow(host.output(), "sources that threw"), 0U);
    EXPECT_GT(tableRow(host.output(), "longest wait (microseconds)"), 0U);
    EXPECT_EQ(tableRow(host.output(), "log rotations"), files - 1);
    EXPECT_THAT(host.output(), HasSubstr("    host.log.0 "));
}

TEST_F(NimhostTest, NumberOfFilesIsLimitedAsConfigured)
{
    const std::string file = configure(fileSettings(
        LOG + "severity.id = INFO\n" + LOG + "maxFileSize = 10000\n" + LOG + "maxNumberOfFiles = 2\n"));
    ChildProcess host(command({"--config", file, "--records", "3000"}), scratch.path());
    ASSERT_EQ(host.wait(), 0);
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.file("log"))) {
        names.insert(entry.path().filename());
    }
    EXPECT_EQ(names, (std::set<std::string>{"host.log", "host.log.0", "host.log.1"}));
}

TEST_F(NimhostTest, ReloadsItsConfigurationOnSighup)
{
    const std::string file = configure(fileSettings(""), "/source/rate = 200\n");
    ChildProcess host(command({"--config", file, "--threads", "1", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));
    EXPECT_EQ(logText().find(" DEBUG "), std::string::npos);

    configure(fileSettings(LOG + "severity.id = DEBUG\n"), "/source/rate = 200\n");
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
    EXPECT_TRUE(
        logHolds("Changing logging settings: Severity\n\tSeverity\n\t\told: NOTICE\n\t\tnew: DEBUG\n"));
    EXPECT_TRUE(logHolds(" DEBUG RequestTask.cpp "));

    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(), HasSubstr("nimhost received signal 15"));
}

/** Like a log rotation tool: renames the file, creates a new one, and sends SIGHUP. */
TEST_F(NimhostTest, ReopensItsLogOnSighupAfterAnExternalRotation)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "output.mask = MODULENAME SEVERITY\n"),
                  "/source/rate = 2000\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("answered"));
    const std::string log = scratch.file("log/host.log");
    const int rounds = 5;
    for (int round = 0; round < rounds; ++round) {
        std::filesystem::rename(log, scratch.file("log/moved-" + std::to_string(round)));
        if (round % 2 == 0) {
            writeFile(log, "");
        }
        host.signal(SIGHUP);
        ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
        ASSERT_TRUE(logHolds("answered"));
    }
    host.signal(SIGTERM);
    ASSERT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");

    expectEachAnswerOnce(host);
    EXPECT_EQ(tableRow(host.output(), "log rotations"), 0U);
    EXPECT_THAT(host.output(), HasSubstr("  in " + scratch.file("log") + "\n"));
}

TEST_F(NimhostTest, ContinuesItsOwnRotationAfterSighup)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "output.mask = MODULENAME SEVERITY\n"
                               + LOG + "maxFileSize = 20000\n"),
                  "/source/rate = 2000\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    for (std::size_t files = 2; files < 10; files += 2) {
        ASSERT_TRUE(waitFor(
            [&] { return std::filesystem::exists(scratch.file("log/host.log." + std::to_string(files))); }));
        host.signal(SIGHUP);
    }
    host.signal(SIGTERM);
    ASSERT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");

    expectEachAnswerOnce(host);
    const std::size_t rotations = tableRow(host.output(), "log rotations");
    EXPECT_TRUE(std::filesystem::exists(scratch.file("log/host.log." + std::to_string(rotations - 1))));
    EXPECT_FALSE(std::filesystem::exists(scratch.file("log/host.log." + std::to_string(rotations))));
}

TEST_F(NimhostTest, KeepsItsLogIfTheNewConfigurationIsInvalid)
{
    const std::string file = configure(fileSettings(""), "/source/rate = 200\n");
    ChildProcess host(command({"--config", file, "--threads", "1", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));

    writeFile(file, "k = \\u12\n");
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost keeps its configuration"));

    host.signal(SIGINT);
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(),
              "nimhost: ERROR: test.properties:1: End-of-line encountered in unicode escape sequence.\n");
    EXPECT_THAT(logText(), HasSubstr("nimhost received signal 2"));
}

TEST_F(NimhostTest, LogsWarningsOfTheLoader)
{
    const std::string file = configure(fileSettings("") + "twice = 1\ntwice = 2\n");
    ChildProcess host(command({"--config", file, "--records", "1"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(), HasSubstr(": WARNING: test-log.properties:4: Overriding property \"twice\"\n"));
}

TEST_F(NimhostTest, LogsToAStreamIfConfigured)
{
    const std::string file = configure(LOG + "stream = STDOUT\n");
    ChildProcess host(command({"--config", file, "--records", "1"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.output(), HasSubstr("nimhost starts with 4 sources\n"));
    EXPECT_THAT(host.output(), HasSubstr("  the log is written to a stream, not to files\n"));
}

TEST_F(NimhostTest, CountsAndLogsFailedTasks)
{
    const std::string file = configure(fileSettings(""), "/source/fail.every = 10\n");
    ChildProcess host(command({"--config", file, "--threads", "1", "--records", "100"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tableRow(host.output(), "tasks run"), 100U);
    EXPECT_EQ(tableRow(host.output(), "tasks that failed"), 10U);
    EXPECT_THAT(logText(), HasSubstr(" failed : 71 : Protocol error\n  [0]\tnimhost.RequestTask.answer():"));
}

TEST_F(NimhostTest, TasksBeyondTheLimitAreRejected)
{
    const std::string file =
        configure(fileSettings(""), "/source/block = false\npool/pending = 1\npool/threads = 1\n");
    ChildProcess host(command({"--config", file, "--records", "20000"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    const std::size_t run = tableRow(host.output(), "tasks run");
    const std::size_t rejected = tableRow(host.output(), "tasks rejected (pool full)");
    EXPECT_EQ(run + rejected, 20000U);
    EXPECT_GT(run, 0U);
    EXPECT_GT(rejected, 0U);
}

TEST_F(NimhostTest, ExceptionOfASourceIsLogged)
{
    // The other source is slow, so that it does not use up all requests first.
    const std::string file =
        configure(fileSettings(""), "source-1/source/break.after = 30\nsource-0/source/rate = 1000\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--records", "1000"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tableRow(host.output(), "sources that threw"), 1U);
    EXPECT_THAT(logText(), HasSubstr("source-1 ended early : 32 : source-1 broke down after 30 requests\n"
                                     "  [0]\tnimhost.Source.run():"));
}

TEST_F(NimhostTest, SignalShutsTheHostDownInOrder)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::string file = configure(fileSettings(""));
        ChildProcess host(command({"--config", file, "--seconds", "60"}), scratch.path());
        ASSERT_TRUE(logHolds("of source-3 answered"));
        host.signal(signal);
        EXPECT_EQ(host.wait(), 0);

        const std::string log = logText();
        const std::string last = log.substr(log.rfind('\n', log.size() - 2) + 1);
        EXPECT_THAT(last,
                    HasSubstr("nimhost is down: sources stopped, queues completed, pool requests shut down "
                              "after "
                              + std::to_string(tableRow(host.output(), "tasks run")) + " tasks\n"));
        std::filesystem::remove_all(scratch.file("log"));
    }
}

TEST_F(NimhostTest, SecondSignalEndsTheHostImmediately)
{
    // With so many pending requests, an orderly shutdown takes far longer than the second signal.
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "maxFileSize = 1000000\n" + LOG
                               + "maxNumberOfFiles = 1\n"),
                  "pool/threads = 1\npool/pending = 1000000\n/source/queue = 1000000\n");
    ChildProcess host(command({"--config", file, "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("answered"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    host.signal(SIGTERM);
    // When the sources have stopped, the first signal has been handled.
    for (int round = 0; round < 100; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        host.signal(SIGTERM);
    }
    EXPECT_EQ(host.wait(), 128 + SIGTERM);
    EXPECT_EQ(host.output(), "");
}

}
