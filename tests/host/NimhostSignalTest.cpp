#include "NimhostPluginFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using testing::HasSubstr;

/** Signals reach the host whatever its threads are blocked in. */
class NimhostSignalTest : public NimhostPluginFixture
{
protected:
    /** Makes a FIFO; returns its path. */
    std::string fifo(const std::string& name) const
    {
        EXPECT_EQ(mkfifo(scratch.file(name).c_str(), 0600), 0);
        return scratch.file(name);
    }

    /** Expects that one signal ends a host that has not begun to run. */
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

TEST_F(NimhostSignalTest, HangupDuringTheStartIsServedByTheRun)
{
    configure(fileSettings(""));
    const std::string pipe = fifo("configuration");
    ChildProcess host(command({"--config", pipe, "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(watchesSignals(host));
    host.signal(SIGHUP);
    writeFile(pipe, support::readFile(scratch.file("test.properties")));
    // A pipe is not waited for a second time.
    ASSERT_TRUE(logHolds("nimhost keeps its configuration"));
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(host.errors(), "nimhost: cannot read " + pipe + " again: it is no regular file\n");
}

TEST_F(NimhostSignalTest, SecondSignalEndsAHostWhosePluginLoops)
{
    ChildProcess host(command({"--config", configureOdd(), document("d.xml", waitingRequest())}),
                      scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("nimhost was told to end by signal 15"));
    host.signal(SIGINT);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGINT);
    EXPECT_EQ(host.errors(), "nimhost: ended by signal 2, the second one: 1 requests are unanswered\n");
}

TEST_F(NimhostSignalTest, SecondSignalEndsAHostWhosePluginLoopsAfterTheTimeLimit)
{
    ChildProcess host(
        command({"--config", configureOdd(), "--seconds", "1", document("d.xml", waitingRequest())}),
        scratch.path());
    ASSERT_TRUE(logHolds("its time is over"));
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("nimhost was told to end by signal 15"));
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGTERM);
}

TEST_F(NimhostSignalTest, FirstSignalAfterTheTimeLimitDropsWhatNoWorkerHasBegun)
{
    const std::string path = document("d.xml", waitingRequest() + request("a") + request("b"));
    ChildProcess host(command({"--config", configureOdd(), "--seconds", "1", path}), scratch.path());
    ASSERT_TRUE(logHolds("its time is over"));
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("nimhost was told to end by signal 15"));
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(),
              "<results>\n" + results("d.xml", {"\"ok\">wait</result>", "\"dropped\"/>", "\"dropped\"/>"})
                  + "</results>\n");
    EXPECT_EQ(tableRow(host.errors(), "requests dropped"), 2U);
}

TEST_F(NimhostSignalTest, HangupIsServedWhileTheHostEnds)
{
    const std::string file = configureOdd();
    ChildProcess host(command({"--config", file, document("d.xml", waitingRequest())}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("it was told to"));
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has read " + file + " again\n"));
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tableRow(host.errors(), "configurations read again"), 1U);
}

/** All threads of the host wait in statements then, and none can take the signal. */
TEST_F(NimhostSignalTest, EndsAHostWhoseLogIsAPipeThatIsFull)
{
    const std::string pipe = fifo("pipe");
    const std::string file =
        configure(LOG + "directory = .\n" + LOG + "file = pipe\n" + LOG + "severity.id = DEBUG\n");
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_NE(reader, -1);
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    // Nothing comes out of the pipe, and nothing goes in once a page is not free.
    pollfd full = {open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), POLLOUT, 0};
    EXPECT_TRUE(waitFor([&] { return poll(&full, 1, 0) == 0; }));
    host.signal(SIGTERM);
    EXPECT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGTERM);
    EXPECT_THAT(host.errors(),
                HasSubstr("nimhost: ended by signal 15, since its main thread does not respond: "));
    close(full.fd);
    close(reader);
}

/** Its sources would go on for ever. */
TEST_F(NimhostSignalTest, TimeLimitEndsAHostWhoseMainThreadDoesNotRespond)
{
    const std::string file = configure(fileSettings(""));
    ChildProcess host(command({"--config", file, "--threads", "1", "--seconds", "3"}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));
    std::filesystem::remove(scratch.file("test-log.properties"));
    const std::string pipe = fifo("test-log.properties");
    host.signal(SIGHUP);
    // The host reads the configuration from here on, and its end does not come.
    int writer = -1;
    ASSERT_TRUE(
        waitFor([&] { return (writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; }));
    EXPECT_TRUE(ends(host));
    host.signal(SIGKILL);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), testing::MatchesRegex(
                                   "nimhost: ended after its time, since its main thread does not respond: "
                                   "[0-9]+ requests are unanswered\n"));
    close(writer);
}

TEST_F(NimhostSignalTest, ReaderOfTheResultsThatGoesAwayIsAnOrderlyEnd)
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
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: the results cannot be written: Broken pipe\n"));
    EXPECT_THAT(host.errors(), HasSubstr("nimhost ran for "));
}
