#include "NimhostFixture.hpp"

#include <gmock/gmock.h>

#include <csignal>

#include <sys/stat.h>

namespace {

using support::ChildProcess;
using support::readFile;
using testing::HasSubstr;

/** The metrics of a run. */
class NimhostMetricsTest : public NimhostFixture
{
protected:
    /** Returns the value of a sample, or "none". */
    std::string valueOf(const std::string& sample) const
    {
        const std::string text = "\n" + readFile(metrics);
        const std::size_t line = text.find("\n" + sample + ' ');
        if (line == std::string::npos) {
            return "none";
        }
        const std::size_t value = line + sample.size() + 2;
        return text.substr(value, text.find('\n', value) - value);
    }

    const std::string metrics = scratch.file("nimhost.prom");
};

TEST_F(NimhostMetricsTest, ContainTheNumbersOfTheSummaryAtTheEnd)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "maxFileSize = 20000\n"));
    ChildProcess host(
        command({"--config", file, "--threads", "2", "--records", "1000", "--metrics", metrics}),
        scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");
    EXPECT_EQ(valueOf("nimhost_tasks_total"), "1000");
    EXPECT_EQ(valueOf("nimhost_requests_open"), "0");
    EXPECT_EQ(valueOf("dalnim_pool_finished_tasks_total{pool=\"requests\"}"), "1000");
    EXPECT_EQ(valueOf("dalnim_pool_running_seconds_count{pool=\"requests\"}"), "1000");
    EXPECT_EQ(valueOf("dalnim_pool_running_tasks{pool=\"requests\"}"), "0");
    EXPECT_EQ(valueOf("dalnim_log_rotations_total{logger=\"default\"}"),
              std::to_string(tableRow(host.output(), "log rotations")));
    EXPECT_EQ(valueOf("dalnim_log_rescued_records_total{logger=\"default\",severity=\"INFO\"}"), "0");
    EXPECT_GE(std::stoul(valueOf("dalnim_log_records_total{logger=\"default\",severity=\"INFO\"}")), 1U);
    EXPECT_EQ(valueOf("dalnim_loader_failed_loads_total"), "0");
    EXPECT_EQ(valueOf("dalnim_contexts_attached_total"), "1000");
    EXPECT_GE(std::stoul(valueOf("dalnim_contexts_duplicated_total")), 1000U);
    EXPECT_FALSE(std::filesystem::exists(metrics + ".new"));
}

TEST_F(NimhostMetricsTest, AreWrittenAgainDuringTheRun)
{
    const std::string file = configure(fileSettings(""), "/source/rate = 200\n");
    ChildProcess host(command({"--config", file, "--seconds", "60", "--metrics", metrics}), scratch.path());
    ASSERT_TRUE(waitFor([this] { return valueOf("nimhost_tasks_total") == "0"; }));
    EXPECT_TRUE(waitFor([this] {
        const std::string tasks = valueOf("nimhost_tasks_total");
        return tasks != "0" && tasks != "none";
    }));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

TEST_F(NimhostMetricsTest, FailedWriteIsLoggedAndTheRunContinues)
{
    const std::string file = configure(fileSettings(""), "/source/rate = 200\n");
    std::filesystem::create_directory(scratch.file("text"));
    const std::string removed = scratch.file("text/nimhost.prom");
    ChildProcess host(command({"--config", file, "--seconds", "60", "--metrics", removed}), scratch.path());
    ASSERT_TRUE(logHolds("nimhost starts with 4 sources"));
    std::filesystem::remove_all(scratch.file("text"));
    ASSERT_TRUE(
        logHolds("the metrics are out of date : cannot write " + removed + ": No such file or directory"));

    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.errors(), "nimhost: cannot write " + removed + ": No such file or directory\n");
}

TEST_F(NimhostMetricsTest, PathThatCannotBeWrittenIsRejected)
{
    const std::string file = configure(fileSettings(""));
    expectRejected({"--config", file, "--metrics", scratch.file("none/a.prom")},
                   "nimhost: cannot write " + scratch.file("none/a.prom") + ": No such file or directory");
    const std::string log = scratch.file("log/host.log");
    expectRejected({"--config", file, "--metrics", log},
                   "nimhost: --metrics " + log + " must not be a file of the log, " + log);
    expectRejected({"--config", file, "--status", metrics, "--metrics", metrics},
                   "nimhost: --status and --metrics require different files");
    expectRejected({"--metrics"}, "nimhost: option --metrics requires a value");
    expectRejected({"--metrics", ""}, "nimhost: option --metrics requires a value");
}

#ifdef PROMTOOL_PROGRAM
TEST_F(NimhostMetricsTest, PromtoolFindsNothing)
{
    ChildProcess host(
        command({"--config", configure(fileSettings("")), "--records", "10", "--metrics", metrics}),
        scratch.path());
    ASSERT_EQ(host.wait(), 0);
    ChildProcess promtool({"/bin/sh", "-c", "\"$0\" check metrics <\"$1\"", PROMTOOL_PROGRAM, metrics},
                          scratch.path());
    EXPECT_EQ(promtool.wait(), 0);
    EXPECT_EQ(promtool.output() + promtool.errors(), "");
}
#endif

}
