#include "NimhostPluginFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using support::ChildProcess;
using support::writeFile;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

/** Signals reach the host even if its threads are blocked. */
class NimhostSignalTest : public NimhostPluginFixture
{
protected:
    /** Creates a FIFO. Returns its path. */
    std::string fifo(const std::string& name) const
    {
        EXPECT_EQ(mkfifo(scratch.file(name).c_str(), 0600), 0);
        return scratch.file(name);
    }

    /** Expects that one signal ends a host that has not started its run. */
    void expectEndAtItsStart(const std::string& configuration, int signal) const
    {
        ChildProcess host(command({"--config", configuration, "--seconds", "60"}), scratch.path());
        ASSERT_TRUE(watchesSignals(host));
        host.signal(signal);
        ASSERT_TRUE(ends(host));
        EXPECT_EQ(host.wait(), 128 + signal);
        EXPECT_EQ(host.errors(), "nimhost: ended by signal " + std::to_string(signal)
                                     + ", before it was running: 0 requests are unanswered\n");
    }
};

}

TEST_F(NimhostSignalTest, EndsAHostThatWaitsForItsConfiguration)
{
    expectEndAtItsStart(fifo("configuration"), SIGTERM);
    expectEndAtItsStart(scratch.file("configuration"), SIGINT);
}

TEST_F(NimhostSignalTest, EndsAHostThatWaitsForTheReaderOfItsLog)
{
    fifo("pipe");
    const std::string file = configure(LOG + "directory = .\n" + LOG + "file = pipe\n");
    expectEndAtItsStart(file, SIGTERM);
    expectEndAtItsStart(file, SIGINT);
}

TEST_F(NimhostSignalTest, SighupDuringTheStartIsHandledByTheRun)
{
    configure(fileSettings(""));
    const std::string pipe = fifo("configuration");
    ChildProcess host(command({"--config", pipe, "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(watchesSignals(host));
    host.signal(SIGHUP);
    writeFile(pipe, support::readFile(scratch.file("test.properties")));
    // A reload does not wait for the writer of a pipe.
    ASSERT_TRUE(logHolds("nimhost keeps its configuration"));
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(), "nimhost: cannot reload " + pipe + ": it is not a regular file\n");
}

TEST_F(NimhostSignalTest, CrashLeavesOneReportInTheLogThatNimlogShowsAsARecord)
{
#ifdef DALNIM_SANITIZED
    GTEST_SKIP() << "the sanitizer handles this signal itself";
#elif !defined NIMLOG_PROGRAM
    GTEST_SKIP() << "nimlog is not built";
#else
    const std::string file =
        configureOdd(LOG + "output.mask = DATETIME MODULENAME SEVERITY\n" + LOG + "timeFormat = UTC_US\n");
    ChildProcess host(command({"--config", file, document("d.xml", waitingRequest())}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGSEGV);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGSEGV);
    const std::string report = "Crash: SIGSEGV (11), sent by process " + std::to_string(getpid());
    EXPECT_THAT(host.errors(), HasSubstr(report));
    ChildProcess nimlog({NIMLOG_PROGRAM, "--severity", "FATAL", scratch.file("log/host.log")},
                        scratch.path());
    EXPECT_EQ(nimlog.wait(), 0) << nimlog.errors();
    EXPECT_THAT(nimlog.output(),
                AllOf(MatchesRegex("20[0-9T:-]+\\.[0-9]+Z com.kor.dal.nim FATAL : Crash: .*"),
                      HasSubstr(report), HasSubstr("\n  other threads:\n"), HasSubstr("of pool "),
                      EndsWith("\n  end of report\n")));
    ChildProcess count(
        {NIMLOG_PROGRAM, "--severity", "FATAL", "--count", "severity", scratch.file("log/host.log")},
        scratch.path());
    EXPECT_EQ(count.wait(), 0) << count.errors();
    EXPECT_EQ(count.output(), "         1 FATAL\n");
#endif
}

TEST_F(NimhostSignalTest, SecondSignalEndsAHostWhosePluginLoops)
{
    ChildProcess host(command({"--config", configureOdd(), document("d.xml", waitingRequest())}),
                      scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("nimhost received signal 15"));
    host.signal(SIGINT);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGINT);
    EXPECT_EQ(host.errors(), "nimhost: ended by signal 2, the second signal: 1 requests are unanswered\n");
}

TEST_F(NimhostSignalTest, SecondSignalEndsAHostWhosePluginLoopsAfterTheTimeLimit)
{
    ChildProcess host(
        command({"--config", configureOdd(), "--seconds", "1", document("d.xml", waitingRequest())}),
        scratch.path());
    ASSERT_TRUE(logHolds("its time limit was reached"));
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("nimhost received signal 15"));
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGTERM);
}

TEST_F(NimhostSignalTest, FirstSignalAfterTheTimeLimitDropsRequestsThatNoWorkerHasStarted)
{
    const std::string path = document("d.xml", waitingRequest() + request("a") + request("b"));
    ChildProcess host(command({"--config", configureOdd(), "--seconds", "1", path}), scratch.path());
    ASSERT_TRUE(logHolds("its time limit was reached"));
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("nimhost received signal 15"));
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(),
              "<results>\n" + results("d.xml", {"\"ok\">wait</result>", "\"dropped\"/>", "\"dropped\"/>"})
                  + "</results>\n");
    EXPECT_EQ(tableRow(host.errors(), "requests dropped"), 2U);
}

TEST_F(NimhostSignalTest, SighupDuringTheShutdownIsHandled)
{
    const std::string file = configureOdd();
    ChildProcess host(command({"--config", file, document("d.xml", waitingRequest())}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("it received a signal"));
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded " + file + "\n"));
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tableRow(host.errors(), "configurations reloaded"), 1U);
}

/** All threads of the host are blocked in log statements. */
TEST_F(NimhostSignalTest, EndsAHostWhoseLogIsAFullPipe)
{
    const std::string pipe = fifo("pipe");
    const std::string file =
        configure(LOG + "directory = .\n" + LOG + "file = pipe\n" + LOG + "severity.id = DEBUG\n");
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    // The pipe is not read. When all its pages are in use, the last one still has space for short records.
    pollfd full = {open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), POLLOUT, 0};
    EXPECT_TRUE(waitFor([&] { return poll(&full, 1, 0) == 0; }));
    while (write(full.fd, ".", 1) == 1) {
    }
    EXPECT_EQ(errno, EAGAIN);
    host.signal(SIGTERM);
    EXPECT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGTERM);
    EXPECT_THAT(host.errors(),
                HasSubstr("nimhost: ended by signal 15, because its main thread does not respond: "));
    close(full.fd);
    close(reader);
}

/** Otherwise, its sources would run forever. */
TEST_F(NimhostSignalTest, TimeLimitEndsAHostWhoseMainThreadDoesNotRespond)
{
    const std::string file = configure(fileSettings(""));
    ChildProcess host(command({"--config", file, "--threads", "1", "--seconds", "3"}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));
    std::filesystem::remove(scratch.file("test-log.properties"));
    const std::string pipe = fifo("test-log.properties");
    host.signal(SIGHUP);
    // The host reads the configuration from a pipe that does not end.
    int writer = -1;
    ASSERT_TRUE(
        waitFor([&] { return (writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; }));
    EXPECT_TRUE(ends(host));
    host.signal(SIGKILL);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(),
                testing::MatchesRegex(
                    "nimhost: ended after its time limit, because its main thread does not respond: "
                    "[0-9]+ requests are unanswered\n"));
    close(writer);
}

TEST_F(NimhostSignalTest, ClosedPipeForTheResultsShutsTheHostDown)
{
    const std::string pipe = fifo("results");
    std::string requests;
    for (int i = 0; i < 5000; ++i) {
        requests += request("answer");
    }
    const std::string path = document("d.xml", waitingRequest() + requests);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    ChildProcess host(shellCommand("exec \"$0\" \"$@\" >" + pipe, {"--config", configureOdd(), path}),
                      scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    close(reader);
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: cannot write the results: Broken pipe\n"));
    EXPECT_THAT(host.errors(), HasSubstr("nimhost ran for "));
}
