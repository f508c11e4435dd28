#include "NimhostFixture.hpp"

#include <support/OwnDisk.hpp>

#include <gmock/gmock.h>

#include <csignal>
#include <cstring>
#include <set>

namespace {

using support::ChildProcess;
using support::readFile;
using testing::HasSubstr;

/** The host during failures of the system: each record that it counts is stored exactly once. */
class NimhostFaultTest : public NimhostFixture
{
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(log);
        if (const int error = support::ownDiskError(log)) {
            GTEST_SKIP() << "no disk can be mounted: " << std::strerror(error);
        }
    }

    /** Returns the lines of a text that are records of requests. */
    static std::multiset<std::string> answersIn(const std::string& text)
    {
        std::multiset<std::string> found;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" answered") != std::string::npos) {
                found.insert(line);
            }
        }
        return found;
    }

    /** Expects each record exactly once: in a file of the log or on standard error. */
    void expectEachRecordOnce(const ChildProcess& host) const
    {
        std::multiset<std::string> all = answersIn(host.errors());
        for (const std::string& record : answers()) {
            all.insert(record);
        }
        EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size())
            << "a record exists twice";
        EXPECT_EQ(tableRow(host.output(), "source records written"), all.size());
    }

    const std::string log = scratch.file("log");
    const std::string settings =
        fileSettings(LOG + "severity.id = INFO\n" + LOG + "output.mask = MODULENAME SEVERITY\n");
};

TEST_F(NimhostFaultTest, TemporarilyFullDiskLosesNoRecord)
{
    const std::string file = configure(settings, "/source/rate = 2000\n");
    EXPECT_EQ(0, support::inChildProcess([&] {
                  ASSERT_TRUE(support::mountOwnDisk(log, "size=8m"));
                  const std::string ballast = log + "/ballast";
                  support::fillDisk(ballast, 16384);
                  ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}),
                                    scratch.path());
                  ASSERT_TRUE(waitFor([&] { return answersIn(host.errors()).size() > 100; }))
                      << "the disk was never full";
                  EXPECT_THAT(host.errors(), HasSubstr("ERROR: Unable to write to log output stream.\n"));

                  std::filesystem::remove(ballast);
                  host.signal(SIGHUP);
                  ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
                  const std::size_t before = answers().size();
                  ASSERT_TRUE(waitFor([&] { return answers().size() > before + 100; }));
                  host.signal(SIGTERM);
                  EXPECT_EQ(host.wait(), 0);
                  expectEachRecordOnce(host);
              }));
}

TEST_F(NimhostFaultTest, RemovedLogDirectoryLosesNoRecord)
{
    const std::string file = configure(settings, "/source/rate = 2000\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds(" answered"));
    // The deleted file is still written to. SIGHUP creates a new one.
    std::filesystem::rename(log, scratch.file("moved"));
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
    ASSERT_TRUE(logHolds(" answered"));
    host.signal(SIGTERM);
    ASSERT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");
    const std::size_t moved = answersIn(readFile(scratch.file("moved/host.log"))).size();
    EXPECT_EQ(tableRow(host.output(), "source records written"), moved + answers().size());
}

TEST_F(NimhostFaultTest, LogsToStandardErrorIfTheLogDirectoryCannotBeCreated)
{
    const std::string parent = scratch.file("a");
    const std::string deep = parent + "/b";
    std::filesystem::create_directory(parent);
    const std::string file =
        configure(LOG + "directory = a/b\n" + LOG + "file = host.log\n" + LOG + "severity.id = INFO\n" + LOG
                      + "output.mask = MODULENAME SEVERITY\n",
                  "/source/rate = 200\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(waitFor([&] { return readFile(deep + "/host.log").find(" answered") != std::string::npos; }));
    std::filesystem::remove_all(parent);
    host.signal(SIGHUP);
    ASSERT_TRUE(waitFor([&] { return answersIn(host.errors()).size() > 10; }));
    EXPECT_THAT(host.errors(),
                HasSubstr("nimhost: " + file + ": cannot reopen the log: No such file or directory: " + deep
                          + "/host.log\n"));
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: logging to standard error: No such file or directory: "
                                         + deep + "/host.log\n"));

    // When there is space again, the next SIGHUP restores the file.
    std::filesystem::create_directory(parent);
    host.signal(SIGHUP);
    ASSERT_TRUE(waitFor([&] { return readFile(deep + "/host.log").find(" answered") != std::string::npos; }));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(tableRow(host.output(), "tasks that failed"), 0U);
}

TEST_F(NimhostFaultTest, ContinuesTheLogOfAKilledHost)
{
    const std::string file = configure(settings + LOG + "maxFileSize = 10000\n", "/source/rate = 2000\n");
    std::size_t before = 0;
    for (int round = 0; round < 10; ++round) {
        ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
        const std::size_t enough = before + 50 + 20 * static_cast<std::size_t>(round);
        ASSERT_TRUE(waitFor([&] { return answers().size() > enough; }));
        host.signal(SIGKILL);
        ASSERT_EQ(host.wait(), 128 + SIGKILL);
        EXPECT_EQ(host.errors(), "");
        const std::vector<std::string> records = answers();
        for (const std::string& record : records) {
            ASSERT_THAT(record,
                        testing::MatchesRegex("nimhost\\.source-[01] (INFO|NOTICE) : request [0-9]+ of "
                                              "source-[01] answered"));
        }
        ASSERT_GE(records.size(), before) << "records of an earlier host are missing";
        before = records.size();
    }
}

TEST_F(NimhostFaultTest, FullDiskForTheStatusPageIsReported)
{
    const std::string file = configure(LOG + "stream = STDOUT\n");
    EXPECT_EQ(0, support::inChildProcess([&] {
                  ASSERT_TRUE(support::mountOwnDisk(log, "size=64k"));
                  support::fillDisk(log + "/ballast", 0);
                  const std::string page = log + "/page.html";
                  ChildProcess host(command({"--config", file, "--records", "1", "--status", page}),
                                    scratch.path());
                  EXPECT_EQ(host.wait(), 2);
                  EXPECT_EQ(host.errors(), "nimhost: cannot write " + page + ": No space left on device\n");
                  EXPECT_FALSE(std::filesystem::exists(page));
                  EXPECT_FALSE(std::filesystem::exists(page + ".new"));
              }));
}

}
