#include "NimhostFixture.hpp"

#include <gmock/gmock.h>

#include <csignal>

namespace {

using support::ChildProcess;
using support::readFile;
using support::writeFile;

/** Runs the example host with logrotate and the documented configuration. */
class NimhostLogrotateTest : public NimhostFixture
{
protected:
    /** Returns the documented configuration, with this log, and the process ID read from a file. */
    std::string rotationOf(const std::string& log, const std::string& process) const
    {
        std::string text = readFile(NIMHOST_LOGROTATE);
        replace(text, "/var/log/nimhost/nimhost.log", log);
        replace(text, "pidof nimhost", "cat " + process);
        const std::string file = scratch.file("nimhost.logrotate");
        writeFile(file, text);
        std::filesystem::permissions(file, std::filesystem::perms(0600));
        return file;
    }

    int rotate(const std::string& configuration) const
    {
        ChildProcess logrotate(
            {LOGROTATE_PROGRAM, "--force", "--state", scratch.file("state"), configuration}, scratch.path());
        const int status = logrotate.wait();
        EXPECT_EQ(logrotate.errors(), "");
        return status;
    }

    std::vector<std::string> rotated() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(scratch.file("log"))) {
            if (entry.path().filename() != "host.log") {
                names.push_back(entry.path().filename());
            }
        }
        return names;
    }

private:
    static void replace(std::string& text, const std::string& what, const std::string& with)
    {
        const std::size_t found = text.find(what);
        ASSERT_NE(found, std::string::npos) << what;
        text.replace(found, what.size(), with);
    }
};

TEST_F(NimhostLogrotateTest, LogrotateLosesNoRecord)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "output.mask = MODULENAME SEVERITY\n"),
                  "/source/rate = 2000\n");
    ChildProcess host(command({"--config", file, "--threads", "2", "--seconds", "60"}), scratch.path());
    ASSERT_TRUE(logHolds("answered"));
    const std::string process = scratch.file("process");
    writeFile(process, std::to_string(host.process()));

    ASSERT_EQ(rotate(rotationOf(scratch.file("log/host.log"), process)), 0);
    EXPECT_THAT(rotated(), testing::ElementsAre(testing::MatchesRegex("host\\.log-[0-9]{8}")));
    ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
    ASSERT_TRUE(logHolds("answered"));
    host.signal(SIGTERM);
    ASSERT_EQ(host.wait(), 0);
    EXPECT_EQ(host.errors(), "");

    expectEachAnswerOnce(host);
}

TEST_F(NimhostLogrotateTest, WorksWithoutAHostOrALog)
{
    const std::string process = scratch.file("process");
    writeFile(process, "");
    const std::string log = scratch.file("log/host.log");
    std::filesystem::create_directory(scratch.file("log"));
    EXPECT_EQ(rotate(rotationOf(log, process)), 0);
    writeFile(log, "of a host that has ended\n");
    EXPECT_EQ(rotate(rotationOf(log, process)), 0);
    EXPECT_EQ(rotated().size(), 1U);
    EXPECT_EQ(readFile(log), "");
}

}
