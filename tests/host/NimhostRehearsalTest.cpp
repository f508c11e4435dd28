#include "NimhostFixture.hpp"

#include <support/Sanitizers.hpp>
#include <support/StandardLibrary.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

namespace {

using support::ChildProcess;
using support::readFile;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;

/**
 * The incidents that docs/guides/incidents.md rehearses: what an operator reads in the log, the reports, the
 * metrics and the last words of the process.
 */
class NimhostRehearsalTest : public NimhostFixture
{
protected:
    void SetUp() override
    {
        std::filesystem::copy(NIMHOST_REHEARSALS, scratch.file("rehearsals"));
        std::filesystem::create_directory(scratch.file("plugins"));
        std::filesystem::copy_file(NIMHOST_PLUGINS "/shop.so", scratch.file("plugins/shop.so"));
    }

    /** Returns the command of the guide for an incident. The metrics are written to "incident.prom". */
    std::vector<std::string> rehearsal(const std::string& incident) const
    {
        return command({"--config", path(incident, ".properties"), "--metrics", scratch.file("incident.prom"),
                        path(incident, ".xml")});
    }

    std::string path(const std::string& incident, const char* extension) const
    {
        return scratch.file("rehearsals/" + incident + extension);
    }

    std::string log(const std::string& incident) const
    {
        return readFile(scratch.file("rehearsals/log/" + incident + ".log"));
    }

    /** Waits until the log of an incident contains a text. */
    bool logHolds(const std::string& incident, const std::string& text) const
    {
        return waitFor([&] { return log(incident).find(text) != std::string::npos; });
    }

    /** Waits until the metrics contain a line. */
    bool metricsHold(const std::string& line) const
    {
        return waitFor([&] {
            return readFile(scratch.file("incident.prom")).find("\n" + line + "\n") != std::string::npos;
        });
    }

    /** Runs nimlog on the log of an incident, and returns what it prints. */
    std::string nimlog(const std::string& incident, std::vector<std::string> words) const
    {
        words.insert(words.begin(), NIMLOG_PROGRAM);
        words.push_back(scratch.file("rehearsals/log/" + incident + ".log"));
        ChildProcess child(words, outputs.path());
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(child.errors(), "");
        return child.output();
    }

    /** For the outputs of nimlog; those of the host are in the other directory. */
    support::ScratchFolder outputs;
};

/** Matches digits of any number, in the syntax of POSIX. */
const std::string N = "[0-9]+";

}

TEST_F(NimhostRehearsalTest, CrashOfAPluginIsReportedWithItsTaskAndTracks)
{
    if (support::UNDER_THREAD_SANITIZER || support::UNDER_ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the sanitizer handles this signal itself";
    }
    ChildProcess host(rehearsal("crash"), scratch.path());
    const std::string process = std::to_string(host.process());
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 128 + SIGSEGV);
    // Of the member that follows a string in an object at address 0.
    const std::string address = support::USES_LIBCXX ? "0x18" : "0x20";
    const std::string report = nimlog("crash", {"--severity", "fatal"});
    EXPECT_THAT(
        report,
        MatchesRegex("[^\n]* " + N + " com\\.kor\\.dal\\.nim FATAL CrashReport " + N
                     + " : Crash: SIGSEGV \\(11\\), no memory is mapped there, address " + address
                     + ", code 1\n  process " + process + ", thread " + N
                     + " \"requests\", time [^\n]*\n    task " + N + " \"Request" + N
                     + "\" \\([^\n]*\\) of pool " + N
                     + " \"requests\"\n    security token [^\n]*\n    \\[1\\] shop\\.Catalogue\\.price\\(\\):"
                     + N + "\n    \\[0\\] shop\\.ShopService\\.perform\\(\\):" + N
                     + "\n  backtrace:\n    #0 0x[0-9a-f]+ [^\n]*/plugins/shop\\.so\\+0x[0-9a-f]+\n.*"
                       "\n  other threads:\n.*\n  modules:\n.*/plugins/shop\\.so build-id [0-9a-f]+\n.*"
                       "\n  end of report\n"));
    EXPECT_THAT(host.errors(), HasSubstr("Crash: SIGSEGV (11), no memory is mapped there, address " + address
                                         + ", code 1\n"));
    EXPECT_THAT(host.errors(), HasSubstr("\n  end of report\n"));
}

TEST_F(NimhostRehearsalTest, StuckPoolIsLoggedWithItsTasksAndTracks)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the sanitizer reports the deadlock itself";
    }
    ChildProcess host(rehearsal("stuck"), scratch.path());
    ASSERT_TRUE(logHolds("stuck", "Queue of pool 'requests' has not moved for "));
    const std::string text = log("stuck");
    const std::string task = N + " com\\.kor\\.dal\\.nim WARNING Watchdog " + N + " : Task 'Request" + N
                             + "' \\(" + N + "\\) of pool 'requests' has been running for " + N
                             + " ms on thread " + N + "\n";
    const std::string perform = "  \\[1\\]\tshop\\.ShopService\\.perform\\(\\):" + N + "\n";
    EXPECT_THAT(text, ContainsRegex(task + "  \\[0\\]\tshop\\.Books\\.order\\(\\):" + N + "\n" + perform));
    EXPECT_THAT(text, ContainsRegex(task + "  \\[0\\]\tshop\\.Books\\.refund\\(\\):" + N + "\n" + perform));
    EXPECT_THAT(text, ContainsRegex("WARNING Watchdog " + N + " : Queue of pool 'requests' has not moved for "
                                    + N + " ms: 2 tasks wait, 2 run\n"));
    EXPECT_TRUE(metricsHold("dalnim_pool_pending_tasks{pool=\"requests\"} 2"));
    EXPECT_TRUE(metricsHold("dalnim_pool_running_tasks{pool=\"requests\"} 2"));
    EXPECT_TRUE(metricsHold("dalnim_pool_finished_tasks_total{pool=\"requests\"} 0"));
}

TEST_F(NimhostRehearsalTest, Sigusr2ShowsThatTheStuckThreadsHoldEachOthersLocks)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the sanitizer reports the deadlock itself";
    }
    ChildProcess host(rehearsal("stuck"), scratch.path());
    // The watchdog has found both requests, so both wait.
    ASSERT_TRUE(logHolds("stuck", "shop.Books.order()"));
    ASSERT_TRUE(logHolds("stuck", "shop.Books.refund()"));
    host.signal(SIGUSR2);
    const auto entry = [](const std::string& function) {
        return std::regex("  thread (" + N + ") \"requests\", state [RS], " + N
                          + " ms of CPU time[^\n]*\n    task " + N + " \"Request" + N + "\" [^\n]* of pool "
                          + N
                          + " \"requests\"\n    security token [^\n]*\n"
                            "    waits for the lock at 0x[0-9a-f]+, held by thread ("
                          + N + ")\n    \\[1\\] shop\\.Books\\." + function + "\\(\\):" + N
                          + "\n    \\[0\\] shop\\.ShopService\\.perform\\(\\):" + N + "\n");
    };
    std::string text;
    std::smatch order;
    std::smatch refund;
    ASSERT_TRUE(waitFor([&] {
        text = log("stuck");
        return std::regex_search(text, order, entry("order"))
               && std::regex_search(text, refund, entry("refund"));
    })) << text;
    EXPECT_THAT(text,
                ContainsRegex(" com\\.kor\\.dal\\.nim NOTICE ThreadReport " + N + " : Threads of process "
                              + std::to_string(host.process()) + ": " + N + "\n"));
    EXPECT_EQ(order[1], refund[2]);
    EXPECT_EQ(refund[1], order[2]);
}

TEST_F(NimhostRehearsalTest, StuckPoolEndsWithinItsLimitAndIsNamed)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the sanitizer reports the deadlock itself";
    }
    ChildProcess host(rehearsal("stuck"), scratch.path());
    ASSERT_TRUE(logHolds("stuck", "shop.Books.order()"));
    ASSERT_TRUE(logHolds("stuck", "shop.Books.refund()"));
    host.signal(SIGTERM);
    ASSERT_TRUE(ends(host));
    EXPECT_EQ(host.wait(), 1);
    const std::string task =
        "nimhost: the task Request" + N + " has been running for " + N + " ms on thread " + N;
    EXPECT_THAT(host.errors(),
                HasSubstr("nimhost: 4 requests are unanswered 3 seconds after the end of the run\n"));
    EXPECT_THAT(host.errors(), ContainsRegex(task + "\n  shop\\.Books\\.order\\(\\):" + N
                                             + "\n  shop\\.ShopService\\.perform\\(\\):" + N + "\n"));
    EXPECT_THAT(host.errors(), ContainsRegex(task + "\n  shop\\.Books\\.refund\\(\\):" + N
                                             + "\n  shop\\.ShopService\\.perform\\(\\):" + N + "\n"));
    EXPECT_THAT(host.errors(), HasSubstr("nimhost: 4 requests and 0 documents were dropped\n"));
    EXPECT_THAT(log("stuck"), ContainsRegex("ERROR Host\\.cpp " + N + " : the task Request" + N));
}

TEST_F(NimhostRehearsalTest, FloodIsFoundByItsSeverityModuleAndPlace)
{
    ChildProcess host(rehearsal("flood"), scratch.path());
    // The end of the first payment, among its own records and those of the second one.
    ASSERT_TRUE(logHolds("flood", "order 17 was not paid"));
    EXPECT_THAT(nimlog("flood", {"--count", "severity"}),
                MatchesRegex(" +[0-9]{3,} ERROR\n +[0-9]+ WARNING\n +[0-9]+ NOTICE\n +[0-9]+ INFO\n"));
    EXPECT_THAT(nimlog("flood", {"--count", "module", "--severity", "error"}),
                MatchesRegex(" +[0-9]{3,} nimhost\\.plugin\\.shop\n"));
    EXPECT_THAT(nimlog("flood", {"--count", "source", "--severity", "error"}),
                MatchesRegex(" +[0-9]{3,} Shop\\.cpp [0-9]+\n"));
    // The record that matters, and the statement that writes at most one per second.
    EXPECT_THAT(nimlog("flood", {"--grep", "not paid"}),
                ContainsRegex("WARNING PluginTable\\.cpp " + N + " : Request" + N
                              + " failed : 110 : order 17 was "
                                "not paid\n"));
    EXPECT_THAT(log("flood"), ContainsRegex("WARNING Shop\\.cpp " + N + " : the bank does not answer \\(" + N
                                            + " held back\\)\n"));
}

TEST_F(NimhostRehearsalTest, LimitEndsTheFloodAndItsEndIsReported)
{
    ChildProcess host(rehearsal("flood"), scratch.path());
    ASSERT_TRUE(logHolds("flood", " order=18 attempt=100\n"));
    const std::string settings = path("flood", ".properties");
    const std::string before = readFile(settings);
    support::writeFile(settings, before + LOG + "modules.limits = nimhost.plugin.shop=5/20/ERROR\n");
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("flood", "The module \"nimhost.plugin.shop\" exceeds "));
    EXPECT_THAT(
        nimlog("flood", {"--grep", "The module"}),
        MatchesRegex("[^\n]* " + N + " com\\.kor\\.dal\\.nim\\.log\\.internal WARNING Write " + N
                     + " : The module \"nimhost\\.plugin\\.shop\" exceeds 5 records per second: further "
                       "ones are held back\n"));
    const std::string heldBack =
        "\ndalnim_log_held_back_records_total{logger=\"default\",severity=\"ERROR\"} ";
    EXPECT_TRUE(waitFor([&] {
        const std::string metrics = readFile(scratch.file("incident.prom"));
        const std::size_t sample = metrics.find(heldBack);
        return sample != std::string::npos && metrics.compare(sample + heldBack.size(), 2, "0\n") != 0;
    }));

    // Without the limit, the flood goes on.
    support::writeFile(settings, before);
    host.signal(SIGHUP);
    const std::string limitEnds = "The module \"nimhost.plugin.shop\" is within its limit again: ";
    ASSERT_TRUE(logHolds("flood", limitEnds));
    EXPECT_TRUE(waitFor([&] {
        const std::string text = log("flood");
        return text.find("cannot reach the bank order=18", text.find(limitEnds)) != std::string::npos;
    }));
    EXPECT_THAT(nimlog("flood", {"--grep", "again"}),
                ContainsRegex(" WARNING Write " + N
                              + " : The module \"nimhost\\.plugin\\.shop\" is within its limit "
                                "again: "
                              + N + " records were held back\n"));
}
