#include "NimhostPluginFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <spawn.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using support::ChildProcess;
using support::readFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

/** Starts that fail, or with missing descriptors. */
class NimhostStartTest : public NimhostPluginFixture
{
protected:
    /**
     * Runs a host with little address space, and expects one line on standard error and status 2. Stacks of
     * 64 MB leave some MB for all other memory when the next one does not fit.
     */
    void expectNoThread(const std::vector<std::string>& arguments, const std::string& line) const
    {
#ifdef DALNIM_SANITIZED
        GTEST_SKIP() << "a sanitizer needs all of the address space";
#endif
        ChildProcess host(shellCommand("ulimit -s 65536; ulimit -v 840000; exec \"$0\" \"$@\"", arguments),
                          scratch.path());
        ASSERT_TRUE(ends(host));
        EXPECT_EQ(host.wait(), 2);
        EXPECT_THAT(host.errors(), MatchesRegex(line + "\n"));
    }

    /**
     * Runs a host that ends on its own. Returns what it writes to standard error, a string for each write.
     * These must fit into the buffer of a socket.
     */
    std::vector<std::string> writesOnStandardError(const std::vector<std::string>& arguments) const
    {
        // A socket of this type preserves the boundaries of writes.
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
            ADD_FAILURE() << "no sockets";
            return {};
        }
        const std::vector<std::string> words = command(arguments);
        std::vector<char*> pointers;
        for (const std::string& word : words) {
            pointers.push_back(const_cast<char*>(word.c_str()));
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
        pid_t host = -1;
        EXPECT_EQ(posix_spawn(&host, words[0].c_str(), &actions, nullptr, pointers.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);

        std::vector<std::string> writes;
        char text[4096];
        for (ssize_t length; (length = read(ends[0], text, sizeof text)) > 0;) {
            writes.emplace_back(text, static_cast<std::size_t>(length));
        }
        close(ends[0]);
        if (host > 0) {
            waitpid(host, nullptr, 0);
        }
        return writes;
    }
};

}

TEST_F(NimhostStartTest, PoolThatCannotStartItsThreadsIsReportedWithOneLine)
{
    const std::string file = configure(fileSettings(""), "pool/threads = 1000\n");
    expectNoThread({"--config", file, "--records", "1"},
                   "nimhost: " + file + ": cannot start the workers, pool/threads is 1000: [^\n]+");
}

TEST_F(NimhostStartTest, SourceThatCannotStartItsThreadStopsTheOthers)
{
    const std::string file = configure(fileSettings(""), "/source/rate = 1\n");
    expectNoThread({"--config", file, "--threads", "500", "--seconds", "60"},
                   "nimhost: cannot start the thread source-[0-9]+: [^\n]+");
#ifndef DALNIM_SANITIZED
    EXPECT_THAT(logText(), HasSubstr("ERROR Host.cpp "));
    EXPECT_THAT(logText(), HasSubstr("nimhost is down: sources stopped"));
#endif
}

/** Otherwise the lines of other threads, or records of a log there, come in between. */
TEST_F(NimhostStartTest, LineOnStandardErrorIsOneWrite)
{
    EXPECT_THAT(writesOnStandardError({"--unknown"}), ElementsAre("nimhost: unknown option --unknown\n"));
    EXPECT_THAT(writesOnStandardError({"--config", "/nonexistent"}),
                ElementsAre("nimhost: cannot read /nonexistent: No such file or directory\n"));
    EXPECT_THAT(writesOnStandardError({"--threads", "x"}),
                ElementsAre("nimhost: --threads requires a number from 1 to 1000, not \"x\"\n"));
}

TEST_F(NimhostStartTest, AdapterThatThrowsNoStdExceptionIsReportedWithOneLine)
{
    const std::string file = configureOdd("host/adapters = odd\nodd/throw = int\n");
    expectRejected({"--config", file}, "nimhost: adapter odd: an exception of type int");
}

TEST_F(NimhostStartTest, AdapterThatThrowsItsOwnTypeIsReportedWithOneLine)
{
    const std::string file = configureOdd("host/adapters = odd\nodd/throw = own\n");
    expectRejected({"--config", file}, "nimhost: adapter odd: an error of the plug-in's own");
    configureOdd("host/adapters = odd\nodd/throw = oddity\n");
    expectRejected({"--config", file},
                   "nimhost: adapter odd: an exception of type (anonymous namespace)::Oddity");
}

TEST_F(NimhostStartTest, PluginThatThrowsNoStdExceptionFailsItsRequest)
{
    const std::string path =
        document("d.xml", request("int") + request("oddity") + request("own") + request("fine"));
    ChildProcess host(command({"--config", configureOdd(), path}), scratch.path());
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(
        host.output(),
        "<results>\n"
            + results("d.xml", {"\"failed\">an exception of type int</result>",
                                "\"failed\">an exception of type (anonymous namespace)::Oddity</result>",
                                "\"failed\">an error of the plug-in's own</result>", "\"ok\">fine</result>"})
            + "</results>\n");
    EXPECT_EQ(tableRow(host.errors(), "tasks that failed"), 3U);
    EXPECT_EQ(tableRow(host.errors(), "requests dropped"), 0U);
    EXPECT_THAT(logText(), HasSubstr(" failed : an exception of type int\n"));
    EXPECT_THAT(logText(), HasSubstr(" failed : an error of the plug-in's own\n"));
}

TEST_F(NimhostStartTest, ExceptionOfATaskThatAPluginAddsIsLoggedWithItsTrace)
{
    const auto background = [](const std::string& type) {
        return "<request plugin='odd' operation='background'><throw>" + type + "</throw></request>";
    };
    const std::string path = document("d.xml", background("none") + background("oddity") + request("fine"));
    ChildProcess host(command({"--config", configureOdd(), path}), scratch.path());
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(logText(), HasSubstr("ERROR : background ended by an exception : 71 : Protocol error\n"
                                     "  [0]\todd.Background.run():17\n"));
    EXPECT_THAT(logText(), HasSubstr("ERROR : background ended by an exception : an exception of type "
                                     "(anonymous namespace)::Oddity\n"));
}

/** The library that contains the code of the exception is unloaded before the handler runs. */
TEST_F(NimhostStartTest, PluginWhoseEntryThrowsItsOwnTypeFailsItsRequests)
{
    for (const std::string type : {"own", "oddity", "int"}) {
        const std::string path =
            document("d.xml", request("fine") + "<reload plugin='odd'/>" + request("fine"));
        ChildProcess host(command({"--config", configureOdd("odd/throw = " + type + "\n"), path}),
                          scratch.path());
        ASSERT_TRUE(ends(host));
        EXPECT_EQ(host.wait(), 1);
        EXPECT_EQ(tableRow(host.errors(), "tasks that failed"), 3U);
        EXPECT_THAT(host.output(), Not(HasSubstr("status=\"ok\"")));
    }
}

TEST_F(NimhostStartTest, ResultsDoNotReachTheLogIfDescriptorsAreClosed)
{
    for (const std::string closed : {">&-", "<&- >&-", "<&- >&- 2>&-"}) {
        const std::string path = document("d.xml", request("fine"));
        ChildProcess host(shellCommand("exec \"$0\" \"$@\" " + closed, {"--config", configureOdd(), path}),
                          scratch.path());
        ASSERT_TRUE(ends(host));
        EXPECT_EQ(host.wait(), 0) << closed;
        EXPECT_THAT(logText(), HasSubstr("nimhost is down: "));
        EXPECT_THAT(logText(), Not(HasSubstr("result"))) << closed;
        EXPECT_THAT(logText(), Not(HasSubstr("nimhost ran for"))) << closed;
        EXPECT_THAT(readFile(scratch.file("plugins/odd.so")), Not(HasSubstr("<results>"))) << closed;
        std::filesystem::remove_all(scratch.file("log"));
    }
}

TEST_F(NimhostStartTest, StatusPageThatIsAFileOfTheLogIsRejected)
{
    const std::string file = configure(fileSettings(""));
    const std::string log = scratch.file("log/host.log");
    std::filesystem::create_directory(scratch.file("log"));
    std::filesystem::create_symlink(log, scratch.file("link"));
    const auto expect = [&](const std::string& page) {
        expectRejected({"--config", file, "--records", "1", "--status", page},
                       "nimhost: --status " + page + " must not be a file of the log, " + log);
    };
    expect(log);
    expect(scratch.file("log/../log/host.log"));
    expect(log + ".0");
    expect(scratch.file("link"));
    // The page is first written to "page.new".
    configure(LOG + "directory = log\n" + LOG + "file = page.new\n");
    expectRejected({"--config", file, "--records", "1", "--status", scratch.file("log/page")},
                   "nimhost: --status " + scratch.file("log/page") + " must not be a file of the log, "
                       + scratch.file("log/page.new"));
}
