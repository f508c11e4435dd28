#include "NimhostPluginFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

using support::ChildProcess;
using support::readFile;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/** Runs that end with unanswered requests: each request is accounted for. */
class NimhostEndTest : public NimhostPluginFixture
{
protected:
    static std::size_t count(const std::string& text, const std::string& part)
    {
        std::size_t number = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++number;
        }
        return number;
    }
};

}

TEST_F(NimhostEndTest, SignalDropsUnsubmittedRequestsAndUnreadDocuments)
{
    std::string requests = waitingRequest();
    for (int i = 0; i < 99; ++i) {
        requests += request("fine");
    }
    const std::string first = document("first.xml", requests);
    const std::string second = document("second.xml", request("fine"));
    const std::string file = configureOdd("pool/pending = 4\n");
    ChildProcess host(command({"--config", file, first, second}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(logHolds("it received a signal"));
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    // Requests that are in the pool, or wait for it, are answered; the others are not.
    const std::string output = host.output();
    const std::size_t answered = count(output, "status=\"ok\">");
    const std::size_t dropped = count(output, "number=\"") - answered;
    EXPECT_GE(answered, 1U);
    EXPECT_GE(dropped, 90U);
    EXPECT_EQ(answered + dropped, 100U);
    EXPECT_EQ(count(output, "plugin=\"odd\" status=\"dropped\"/>\n"), dropped);
    EXPECT_THAT(output, HasSubstr("  <document name=\"" + second + "\" status=\"dropped\"/>\n</results>\n"));
    EXPECT_EQ(tableRow(host.errors(), "requests dropped"), dropped);
    EXPECT_EQ(tableRow(host.errors(), "documents dropped"), 1U);
    EXPECT_EQ(tableRow(host.errors(), "tasks run"), answered);
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: " + std::to_string(dropped)
                                         + " requests and 1 documents were dropped\n"));
    EXPECT_THAT(logText(), HasSubstr(second + " was dropped: the run ended before it was read\n"));
}

TEST_F(NimhostEndTest, ShutdownLimitDropsRequestsOfALoopingPlugin)
{
    const std::string path = document("d.xml", waitingRequest() + request("fine"));
    const std::string file = configureOdd("host/end.seconds = 1\n");
    const std::string page = scratch.file("page.html");
    ChildProcess host(command({"--config", file, "--status", page, path}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(),
              "<results>\n" + results("d.xml", {"\"dropped\"/>", "\"dropped\"/>"}) + "</results>\n");
    // The second request is included only if it was submitted before the signal.
    EXPECT_THAT(host.errors(), HasSubstr(" requests are unanswered 1 seconds after the end of the run\n"));
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: 2 requests and 0 documents were dropped\n"));
    EXPECT_EQ(tableRow(host.errors(), "requests dropped"), 2U);
    EXPECT_THAT(readFile(page), HasSubstr("<p>Ran for "));
}

TEST_F(NimhostEndTest, ShutdownLimitNamesTheTaskOfALoopingPlugin)
{
    const std::string path = document("d.xml", waitingRequest());
    ChildProcess host(command({"--config", configureOdd("host/end.seconds = 1\n"), path}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(
        host.errors(),
        ContainsRegex("nimhost: the task Request[0-9]+ has been running for [0-9]+ ms on thread [0-9]+\n"
                      "  odd\\.Service\\.wait\\(\\):5\n"));
    EXPECT_THAT(logText(), ContainsRegex("ERROR : the task Request[0-9]+ has been running for "));
}

TEST_F(NimhostEndTest, ShutdownLimitEndsATaskThatAPluginHasAdded)
{
    const std::string endless = "<request plugin='odd' operation='background'><throw>never</throw></request>";
    for (const bool isSignalled : {true, false}) {
        // The request is answered; the task that it has added never ends.
        const std::string path =
            document("d.xml", isSignalled ? endless + waitingRequest() : endless + request("fine"));
        const std::string file = configureOdd("host/end.seconds = 1\npool/threads = 2\n");
        ChildProcess host(command({"--config", file, path}), scratch.path());
        if (isSignalled) {
            ASSERT_TRUE(waitingRequestRuns());
            host.signal(SIGTERM);
            endWaitingRequest();
        }
        ASSERT_TRUE(ends(host));
        EXPECT_EQ(host.wait(), 1);
        EXPECT_EQ(host.output(),
                  "<results>\n"
                      + results("d.xml", {"\"ok\">background</result>",
                                          isSignalled ? "\"ok\">wait</result>" : "\"ok\">fine</result>"})
                      + "</results>\n");
        EXPECT_THAT(host.errors(), HasSubstr("nimhost: 0 requests are unanswered 1 seconds after the end"));
        EXPECT_THAT(host.errors(), HasSubstr("nimhost: the task background has been running for "));
    }
}

TEST_F(NimhostEndTest, ShutdownLimitCountsRequestsOfSources)
{
    const std::string file = configureOdd("host/end.seconds = 1\npool/pending = 4\n");
    ChildProcess host(
        command({"--config", file, "--threads", "2", "--seconds", "60", document("d.xml", waitingRequest())}),
        scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    // The only worker is blocked: the requests of the sources fill their queues.
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    const std::string errors = host.errors();
    EXPECT_GE(tableRow(errors, "requests dropped"), 2U);
    EXPECT_THAT(errors, HasSubstr("nimhost: " + std::to_string(tableRow(errors, "requests dropped"))
                                  + " requests and 0 documents were dropped\n"));
}

TEST_F(NimhostEndTest, StuckRequestIsLoggedWithItsTracks)
{
    const std::string path = document("d.xml", waitingRequest() + request("fine"));
    ChildProcess host(command({"--config", configureOdd("host/stuck.seconds = 1\n"), path}), scratch.path());
    ASSERT_TRUE(waitingRequestRuns());
    ASSERT_TRUE(logHolds("Queue of pool 'requests' has not moved for "));
    ASSERT_TRUE(logHolds(" of pool 'requests' has been running for "));
    endWaitingRequest();
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(),
                ContainsRegex("com\\.kor\\.dal\\.nim WARNING : Task 'Request[0-9]+' \\([0-9]+\\) of pool "
                              "'requests' has been running for [0-9]+ ms on thread [0-9]+\n"
                              "  \\[0\\]\todd\\.Service\\.wait\\(\\):5\n"));
}

TEST_F(NimhostEndTest, NothingIsDroppedIfAllRequestsAreAnswered)
{
    const std::string path = document("d.xml", request("fine"));
    ChildProcess host(command({"--config", configureOdd(), "--threads", "2", "--records", "500", path}),
                      scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(tableRow(host.errors(), "requests dropped"), 0U);
    EXPECT_EQ(tableRow(host.errors(), "tasks run"), 501U);
    EXPECT_THAT(host.errors(), Not(HasSubstr("dropped\nnimhost")));
}

TEST_F(NimhostEndTest, FailedWriteOfResultsShutsTheHostDown)
{
    const std::string page = scratch.file("page.html");
    const std::string first = document("first.xml", request("fine") + request("fine"));
    const std::string file = configureOdd();
    ChildProcess host(
        shellCommand("exec \"$0\" \"$@\" >/dev/full",
                     {"--config", file, "--threads", "1", "--seconds", "60", "--status", page, first}),
        scratch.path());
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: cannot write the results: No space left on device\n"));
    EXPECT_THAT(host.errors(), HasSubstr("nimhost ran for "));
    // If the run ended before the document was read, the document has one result, which is lost.
    EXPECT_EQ(tableRow(host.errors(), "results not written"),
              tableRow(host.errors(), "documents read") == 0 ? 1U : 2U);
    EXPECT_THAT(logText(), HasSubstr("its results cannot be written"));
    EXPECT_THAT(logText(), HasSubstr("nimhost is down: sources stopped"));
    EXPECT_THAT(readFile(page), HasSubstr("<p>Ran for "));
}

TEST_F(NimhostEndTest, FailedWriteOfTheSummaryIsAnError)
{
    const std::string file = configure(fileSettings(""));
    ChildProcess host(shellCommand("exec \"$0\" \"$@\" >/dev/full", {"--config", file, "--records", "1"}),
                      scratch.path());
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.errors(), "nimhost: cannot write the summary\n");
}
