#include <support/ChildProcess.hpp>
#include <support/Files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

namespace {

using support::ChildProcess;
using support::readFile;
using support::writeFile;
using testing::HasSubstr;
using testing::MatchesRegex;

const char LOG[] = "com.kor.dal.nim.log.Control.";

class NimhostTest : public testing::Test
{
protected:
    std::vector<std::string> command(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> words = {NIMHOST_PROGRAM};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return words;
    }

    /** Writes a configuration whose log stands in the scratch folder; gives its path. */
    std::string configure(const std::string& logSettings, const std::string& rate = "0") const
    {
        const std::string file = scratch.file("test.properties");
        writeFile(file, "%pragma include \"test-log.properties\"\n"
                        "/source/rate = " + rate + "\n/source/debug.every = 4\n");
        writeFile(scratch.file("test-log.properties"), logSettings);
        return file;
    }

    static std::string fileSettings(const std::string& more)
    {
        return std::string(LOG) + "directory = log\n" + LOG + "file = host.log\n" + more;
    }

    std::string logText() const
    {
        return readFile(scratch.file("log/host.log"));
    }

    /** Waits until the log holds a text; false when a quarter of a minute did not bring it. */
    bool logHolds(const std::string& text) const
    {
        for (int round = 0; round < 1500; ++round) {
            if (logText().find(text) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    /** The number in the row of that label, a very large one when there is no such row. */
    static std::size_t tableRow(const std::string& output, const std::string& label)
    {
        const std::size_t row = output.find("  " + label + ' ');
        return row != std::string::npos ? std::stoul(output.substr(row + label.size() + 2)) : std::string::npos;
    }

    /** Runs to the end and expects one line on standard error and status 2. */
    void expectRefused(const std::vector<std::string>& arguments, const std::string& line) const
    {
        ChildProcess host(command(arguments), scratch.path());
        EXPECT_EQ(host.wait(), 2);
        EXPECT_EQ(host.errors(), line + "\n");
        EXPECT_EQ(host.output(), "");
    }

    support::ScratchFolder scratch;
};

TEST_F(NimhostTest, RefusesBadOptionsInOneLine)
{
    expectRefused({"--bogus"}, "nimhost: unknown option --bogus");
    expectRefused({"--threads"}, "nimhost: option --threads needs a value");
    expectRefused({"--threads", "0"}, "nimhost: --threads takes a number from 1 to 1000, not \"0\"");
    expectRefused({"--threads", "4x"}, "nimhost: --threads takes a number from 1 to 1000, not \"4x\"");
    expectRefused({"--seconds", "-1"}, "nimhost: --seconds takes a number from 1 to 1000000000, not \"-1\"");
    expectRefused({"--records", ""}, "nimhost: --records takes a number from 1 to 1000000000000, not \"\"");
    expectRefused({"more"}, "nimhost: unexpected argument more");
}

TEST_F(NimhostTest, RefusesAConfigurationThatCannotBeRead)
{
    const std::string missing = scratch.file("missing.properties");
    expectRefused({"--config", missing}, "nimhost: cannot read " + missing + ": No such file or directory");
    expectRefused({"--config", scratch.path()}, "nimhost: cannot read " + scratch.path() + ": Is a directory");
}

TEST_F(NimhostTest, RefusesAMissingInclude)
{
    const std::string file = configure("");
    std::filesystem::remove(scratch.file("test-log.properties"));
    expectRefused({"--config", file}, "nimhost: ERROR: test.properties:1: failed to open include file: \"" +
                                          scratch.file("test-log.properties") + "\"");
}

TEST_F(NimhostTest, RefusesABadValue)
{
    const std::string file = configure(fileSettings(std::string(LOG) + "severity.id = LOUD\n"));
    expectRefused({"--config", file}, "nimhost: " + file + ": Unrecognized NIM Log Severity");

    const std::string badRate = configure(fileSettings(""), "many");
    expectRefused({"--config", badRate},
                  "nimhost: " + badRate + ": source/rate of source-0 is to be a number, not \"many\"");
}

TEST_F(NimhostTest, ShowsItsUsage)
{
    ChildProcess host(command({"--help"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.output(), HasSubstr("usage: nimhost [--config FILE] [--threads N] [--seconds S] [--records N]"));
    EXPECT_EQ(host.errors(), "");
}

TEST_F(NimhostTest, WritesEveryRecordOfSeveralThreadsToARotatingSet)
{
    const std::string file = configure(fileSettings(std::string(LOG) + "severity.id = INFO\n" + LOG +
                                                    "output.mask = MODULENAME SEVERITY\n" + LOG +
                                                    "maxFileSize = 20000\n"));
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
            if (line.find("answered in") != std::string::npos) {
                ++lines;
                EXPECT_THAT(line, MatchesRegex("nimhost\\.source-[0-3] (INFO|NOTICE) : request [0-9]+ "
                                               "answered in [0-9]+ microseconds"));
                records.insert(line);
            }
        }
    }
    EXPECT_EQ(records.size(), lines) << "a record stands twice";
    EXPECT_GE(files, 10U);

    // Of every four records of a source one is refused; a source may end in the middle of four.
    EXPECT_GE(lines, 3000U);
    EXPECT_LE(lines, 3012U);
    EXPECT_EQ(tableRow(host.output(), "records written"), lines);
    EXPECT_EQ(tableRow(host.output(), "records refused by the gate"), 4000 - lines);
    EXPECT_EQ(tableRow(host.output(), "records failed"), 0U);
    EXPECT_EQ(tableRow(host.output(), "rotations"), files - 1);
    EXPECT_THAT(host.output(), HasSubstr("    host.log.0 "));
}

TEST_F(NimhostTest, KeepsTheNumberOfFilesThatItIsToldTo)
{
    const std::string file = configure(fileSettings(std::string(LOG) + "severity.id = INFO\n" + LOG +
                                                    "maxFileSize = 10000\n" + LOG + "maxNumberOfFiles = 2\n"));
    ChildProcess host(command({"--config", file, "--records", "3000"}), scratch.path());
    ASSERT_EQ(host.wait(), 0);
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.file("log"))) {
        names.insert(entry.path().filename());
    }
    EXPECT_EQ(names, (std::set<std::string>{"host.log", "host.log.0", "host.log.1"}));
}

TEST_F(NimhostTest, ReadsItsConfigurationAgainOnHangup)
{
    const std::string file = configure(fileSettings(""), "200");
    ChildProcess host(command({"--config", file, "--threads", "1", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));
    EXPECT_EQ(logText().find(" DEBUG "), std::string::npos);

    configure(fileSettings(std::string(LOG) + "severity.id = DEBUG\n"), "200");
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has read " + file + " again"));
    EXPECT_TRUE(logHolds("Changing logging setting: Severity\n\told: NOTICE\n\tnew: DEBUG"));
    EXPECT_TRUE(logHolds(" DEBUG Source.cpp "));

    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(), HasSubstr("nimhost was told to end by signal 15"));
}

TEST_F(NimhostTest, KeepsItsLogWhenTheNewConfigurationIsBad)
{
    const std::string file = configure(fileSettings(""), "200");
    ChildProcess host(command({"--config", file, "--threads", "1", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));

    writeFile(file, "k = \\u12\n");
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost keeps its configuration"));

    host.signal(SIGINT);
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(),
              "nimhost: ERROR: test.properties:1: End-of-line encountered in unicode escape sequence.\n");
    EXPECT_THAT(logText(), HasSubstr("nimhost was told to end by signal 2"));
}

TEST_F(NimhostTest, LogsWhatTheLoaderWarnsOf)
{
    const std::string file = configure(fileSettings("") + "twice = 1\ntwice = 2\n");
    ChildProcess host(command({"--config", file, "--records", "1"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(), HasSubstr(": WARNING: test-log.properties:4: Overriding property \"twice\"\n"));
}

TEST_F(NimhostTest, LogsToAStreamWhenItIsToldTo)
{
    const std::string file = configure(std::string(LOG) + "stream = STDOUT\n");
    ChildProcess host(command({"--config", file, "--records", "1"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.output(), HasSubstr("nimhost starts with 4 sources\n"));
    EXPECT_THAT(host.output(), HasSubstr("  the log is a stream, there are no files\n"));
}

}
