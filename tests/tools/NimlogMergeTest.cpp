#include "ToolFixture.hpp"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/** Returns a line with a time in the hour of 15:00. */
std::string at(int second, const std::string& text)
{
    const auto twoDigits = [](int number) {
        return std::to_string(number / 10) + std::to_string(number % 10);
    };
    return "Sat Nov 14 15:" + twoDigits(second / 60) + ':' + twoDigits(second % 60)
           + " UTC 2026 INFO : " + text + '\n';
}

/** Several logs that are read as one. */
class NimlogMergeTest : public ToolFixture
{
protected:
    Result run(const std::string& arguments) const
    {
        return shell("exec timeout 60 '" NIMLOG_PROGRAM "' --mask DATETIME,SEVERITY " + arguments);
    }
};

TEST_F(NimlogMergeTest, RecordsOfSeveralLogsAreSortedByTime)
{
    write("a.log.0", at(1, "a1") + at(3, "a3"));
    write("a.log", at(5, "a5\nmore") + at(7, "a7"));
    write("b.log.1", at(2, "b2"));
    write("b.log", at(4, "b4") + at(6, "b6"));
    shell("gzip b.log.1");
    const std::string all =
        at(1, "a1") + at(2, "b2") + at(3, "a3") + at(4, "b4") + at(5, "a5\nmore") + at(6, "b6") + at(7, "a7");
    expectResult(run("a.log b.log"), 0, all, "");
    expectResult(run("b.log a.log"), 0, all, "");
    expectResult(run("a.log - <b.log"), 0,
                 at(1, "a1") + at(3, "a3") + at(4, "b4") + at(5, "a5\nmore") + at(6, "b6") + at(7, "a7"), "");
    expectResult(run("a.log b.log --last 2"), 0, at(6, "b6") + at(7, "a7"), "");
    expectResult(run("a.log b.log --count severity"), 0, "         7 INFO\n", "");
    expectResult(
        run("a.log b.log --since 2026-11-14T15:00:06 --json"), 0,
        "{\"log\":\"b.log\",\"time\":\"2026-11-14T15:00:06Z\",\"severity\":\"INFO\",\"text\":\"b6\"}\n"
        "{\"log\":\"a.log\",\"time\":\"2026-11-14T15:00:07Z\",\"severity\":\"INFO\",\"text\":\"a7\"}\n",
        "");
}

TEST_F(NimlogMergeTest, RecordsWithEqualTimesHaveTheOrderOfTheOperands)
{
    write("a.log", at(1, "a1") + at(1, "a2") + at(2, "a3"));
    write("b.log", at(1, "b1") + at(2, "b2") + at(2, "b3"));
    write("c.log", "Sat Nov 14 16:00:01 +0100 2026 INFO : c1\n");
    const std::string c1 = "Sat Nov 14 16:00:01 +0100 2026 INFO : c1\n";
    expectResult(run("a.log b.log c.log"), 0,
                 at(1, "a1") + at(1, "a2") + at(1, "b1") + c1 + at(2, "a3") + at(2, "b2") + at(2, "b3"), "");
    expectResult(run("c.log b.log a.log"), 0,
                 c1 + at(1, "b1") + at(1, "a1") + at(1, "a2") + at(2, "b2") + at(2, "b3") + at(2, "a3"), "");
}

TEST_F(NimlogMergeTest, RecordWithoutATimeFollowsItsPredecessor)
{
    // The report changes the mask: its record and the next one have no time.
    const std::string untimed = "INFO : Changing logging setting: OutputMask\n"
                                "\told: 0x5 [DATETIME,SEVERITY]\n\tnew: 0x4 [SEVERITY]\nINFO : a3\n";
    write("a.log", "a fragment\n" + at(2, "a2") + untimed);
    write("b.log", at(1, "b1") + at(2, "b2") + at(9, "b9"));
    expectResult(
        run("b.log a.log"), 0,
        "a fragment\n" + at(1, "b1") + at(2, "b2") + at(2, "a2") + untimed + at(9, "b9"),
        "nimlog: a.log: lines before the first record that do not start with the expected fields: 1; "
        "name them with --mask or --config\n");
    // A time that is older than that of the predecessor does not change the order of a log.
    write("a.log", at(5, "a5") + at(3, "a3") + at(8, "a8"));
    expectResult(run("b.log a.log"), 0,
                 at(1, "b1") + at(2, "b2") + at(5, "a5") + at(3, "a3") + at(8, "a8") + at(9, "b9"), "");
}

TEST_F(NimlogMergeTest, RotatedFileOfAnotherOperandIsReadOnce)
{
    write("a.log", at(3, "3"));
    write("a.log.0", at(2, "2"));
    write("a.log-20261114", at(1, "1"));
    shell("gzip a.log-20261114");
    expectResult(run("a.log*"), 0, at(1, "1") + at(2, "2") + at(3, "3"), "");
    expectResult(run("a.log a.log"), 0, at(1, "1") + at(2, "2") + at(3, "3"), "");
    // Without its log, each file is a log.
    expectResult(run("a.log.0 a.log-20261114.gz"), 0, at(1, "1") + at(2, "2"), "");
}

TEST_F(NimlogMergeTest, MessagesNameTheLog)
{
    write("a.log", at(1, "1"));
    write("b.log", "no record\n");
    expectResult(run("a.log missing.log"), 2, "",
                 "nimlog: cannot read missing.log: No such file or directory\n");
    expectResult(
        run("a.log b.log"), 1, "no record\n" + at(1, "1"),
        "nimlog: b.log: no line starts with the expected fields; name them with --mask or --config\n");
    write("b.log", at(2, "2"));
    expectResult(run("a.log b.log --thread 1"), 0, "",
                 "nimlog: a.log, b.log: records left out because they lack a field that was filtered or "
                 "counted by: 2\n");
    expectResult(run("-f a.log -"), 2, "",
                 "nimlog: --follow requires a file: standard input is always read until it ends\n");
}

/** The model sorts the lines of all logs; each log is longer than what is read in one step. */
TEST_F(NimlogMergeTest, ModelOfLongLogsHasTheSameOrder)
{
    std::mt19937 random(20261114);
    std::vector<std::string> bySecond(3600);
    for (const char* const name : {"a.log", "b.log", "c.log"}) {
        std::string text;
        for (int second = 0; second < 3600; ++second) {
            for (std::size_t records = random() % 5; records > 0; --records) {
                const std::string record =
                    at(second, name + std::string(random() % 300, 'x') + std::to_string(records));
                text += record;
                bySecond[static_cast<std::size_t>(second)] += record;
            }
        }
        ASSERT_GT(text.size(), 1000000U);
        write(name, text);
    }
    std::string expected;
    for (const std::string& records : bySecond) {
        expected += records;
    }
    EXPECT_TRUE(run("a.log b.log c.log").output == expected);
}

/** Two logs that nimlog follows. */
class NimlogMergeFollowTest : public NimlogMergeTest
{
protected:
    void append(const std::string& name, const std::string& text) const
    {
        const int file = open(directory.file(name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        ASSERT_EQ(::write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(file);
    }

    void start(const std::vector<std::string>& arguments = {})
    {
        std::vector<std::string> command = {
            NIMLOG_PROGRAM,         "--follow", "--mask", "DATETIME,SEVERITY", directory.file("a.log"),
            directory.file("b.log")};
        command.insert(command.end(), arguments.begin(), arguments.end());
        nimlog = std::make_unique<support::ChildProcess>(command, outputs.path());
    }

    /** Waits until this is the whole output. Returns false after a minute. */
    bool shows(const std::string& text) const
    {
        for (int round = 0; round < 6000; ++round) {
            if (nimlog->output() == text) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(nimlog->output(), text);
        return false;
    }

    void expectEnd(const std::string& output)
    {
        nimlog->signal(SIGTERM);
        EXPECT_EQ(nimlog->wait(), 0);
        EXPECT_EQ(nimlog->output(), output);
        EXPECT_EQ(nimlog->errors(), "");
    }

    std::unique_ptr<support::ChildProcess> nimlog;
};

TEST_F(NimlogMergeFollowTest, NewRecordsOfSeveralLogsAreSortedByTime)
{
    append("a.log", at(1, "a1") + at(3, "a3"));
    append("b.log", at(2, "b2"));
    start();
    std::string expected = at(1, "a1") + at(2, "b2") + at(3, "a3");
    ASSERT_TRUE(shows(expected));
    for (int round = 1; round <= 5; ++round) {
        // nimlog finds both records at the same time.
        nimlog->signal(SIGSTOP);
        append("a.log", at(10 * round + 2, "a\nmore"));
        append("b.log", at(10 * round + 1, "b") + at(10 * round + 3, "b"));
        nimlog->signal(SIGCONT);
        expected += at(10 * round + 1, "b") + at(10 * round + 2, "a\nmore") + at(10 * round + 3, "b");
        ASSERT_TRUE(shows(expected));
        std::filesystem::rename(directory.file("a.log"),
                                directory.file("a.log." + std::to_string(5 - round)));
    }
    // A log that gets no more records does not keep back those of the other one, whatever their time is.
    append("b.log", "Fri Nov 14 15:00:00 UTC 2098 INFO : future\n");
    expected += "Fri Nov 14 15:00:00 UTC 2098 INFO : future\n";
    ASSERT_TRUE(shows(expected));
    expectEnd(expected);
}

TEST_F(NimlogMergeFollowTest, LongHistoryIsSortedBeforeNewRecords)
{
    std::string expected;
    for (int second = 0; second < 3000; ++second) {
        const std::string line = at(second, std::string(300, 'x'));
        append(second % 7 == 0 ? "a.log" : "b.log", line);
        expected += line;
    }
    start();
    ASSERT_TRUE(shows(expected));
    append("a.log", at(3001, "a"));
    ASSERT_TRUE(shows(expected + at(3001, "a")));
    expectEnd(expected + at(3001, "a"));
}

TEST_F(NimlogMergeFollowTest, LastRecordsAreThoseOfAllLogs)
{
    append("a.log", at(1, "a1") + at(4, "a4"));
    append("b.log", at(2, "b2") + at(3, "b3"));
    start({"--last", "2"});
    ASSERT_TRUE(shows(at(3, "b3") + at(4, "a4")));
    append("b.log", at(5, "b5"));
    ASSERT_TRUE(shows(at(3, "b3") + at(4, "a4") + at(5, "b5")));
    expectEnd(at(3, "b3") + at(4, "a4") + at(5, "b5"));
}

}
