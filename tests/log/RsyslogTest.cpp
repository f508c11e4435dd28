// rsyslogd collects the log with the documented configuration: each record arrives once, in its order.

#include <dalnim/log/Module.hpp>
#include <dalnim/log/Statement.hpp>
#include <dalnim/log/Write.hpp>

#include <support/ChildProcess.hpp>
#include <support/Files.hpp>
#include <support/StandardErrorTo.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using com::kor::dal::nim::log::Module;
using com::kor::dal::nim::log::Write;
using support::ChildProcess;

typedef std::vector<std::string> Lines;

class RsyslogTest : public testing::Test
{
protected:
    RsyslogTest() : path(scratch.file("server.log")), module("disks", logger)
    {
        std::filesystem::create_directory(scratch.file("state"));
        writeConfiguration();
        logger.setOutputMask(com::kor::dal::nim::log::Mask_MODULENAME
                             | com::kor::dal::nim::log::Mask_SEVERITY);
        logger.setEscapeControls(true);
        logger.setPath(path);
        log("first");
    }
    ~RsyslogTest() override
    {
        logger.unregisterModule(module);
    }

    /** Starts rsyslogd, and waits until it has read the log. */
    void startRsyslog()
    {
        rsyslogd.emplace(command(), scratch.path());
        expectAllCollected();
    }

    Lines command() const
    {
        return {RSYSLOGD_PROGRAM, "-n", "-f", scratch.file("rsyslog.conf"), "-i", scratch.file("pid")};
    }

    /** Waits until a condition is true. Returns false after 15 seconds. */
    template <class Condition>
    static bool waitFor(Condition condition)
    {
        for (int round = 0; round < 1500; ++round) {
            if (condition()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    void stopRsyslog()
    {
        rsyslogd->signal(SIGTERM);
        EXPECT_EQ(0, rsyslogd->wait());
        // During a rotation there is no such file for a moment.
        std::istringstream errors(rsyslogd->errors());
        for (std::string line; std::getline(errors, line);) {
            EXPECT_THAT(line, testing::HasSubstr("poll_tree cannot stat file '" + path + "' - ignored"));
        }
    }

    void log(const std::string& text)
    {
        NIM_LOG_TO(module, Severity_ERROR) << text;
        std::string line = "disks ERROR : " + text;
        for (std::size_t at = 0; (at = line.find('\n', at)) != std::string::npos;) {
            line.replace(at, 1, "\\n");
        }
        expected.push_back(line);
    }

    /** Logs records of one and of several lines, of about 100 bytes each. */
    void logMany(int count)
    {
        for (int i = 0; i < count; ++i) {
            const std::string number = std::to_string(expected.size());
            log("record " + number + ": caf\xC3\xA9\t" + std::string(60, 'x')
                + (i % 5 == 0 ? "\n\n  a second line of " + number : ""));
        }
    }

    /** Expects that each record is collected once, in its order. */
    void expectAllCollected() const
    {
        waitFor([this] { return collected().size() >= expected.size(); });
        EXPECT_TRUE(collected() == expected)
            << collected().size() << " of " << expected.size() << " records were collected";
    }

    Lines collected() const
    {
        std::istringstream text(support::readFile(scratch.file("collected")));
        Lines lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    /** Logs until the log has been rotated. Returns false if that does not happen. */
    bool logUntilRotation()
    {
        const ino_t before = inode();
        for (int i = 0; i < 10000; ++i) {
            if (inode() != before) {
                return true;
            }
            logMany(1);
        }
        return false;
    }

    ino_t inode() const
    {
        struct stat status = {};
        stat(path.c_str(), &status);
        return status.st_ino;
    }

    const support::ScratchFolder scratch;
    std::ostringstream traces;
    /** Hides the traces of the rotations. */
    const support::StandardErrorTo redirected{traces.rdbuf()};
    const std::string path;
    Write logger;
    Module module;
    Lines expected;
    std::optional<ChildProcess> rsyslogd;

private:
    /** Writes the documented configuration, with the paths of this test. */
    void writeConfiguration() const
    {
        std::string text = support::readFile(RSYSLOG_CONFIGURATION);
        replace(text, "/var/log/nimhost/nimhost.log", path);
        replace(text, "/var/log/nimhost-collected.log", scratch.file("collected"));
        support::writeFile(scratch.file("rsyslog.conf"),
                           "global(workDirectory=\"" + scratch.file("state") + "\")\n" + text);
    }

    static void replace(std::string& text, const std::string& what, const std::string& with)
    {
        const std::size_t found = text.find(what);
        if (found == std::string::npos) {
            throw std::runtime_error("no " + what);
        }
        text.replace(found, what.size(), with);
    }
};

TEST_F(RsyslogTest, EachRecordIsCollectedOnceAcrossRotations)
{
    logger.setMaxFileSize(20000);
    logger.setMaxNumberOfFiles(3);
    startRsyslog();
    // Records that precede a rotation may be read before or after it. The next rotation must wait until the
    // new file has been found.
    for (int rotation = 0; rotation < 25; ++rotation) {
        ASSERT_TRUE(logUntilRotation());
        log("the first record after rotation " + std::to_string(rotation));
        expectAllCollected();
        ASSERT_FALSE(HasFailure()) << rotation;
    }
    EXPECT_TRUE(std::filesystem::exists(path + ".2"));
    EXPECT_FALSE(std::filesystem::exists(path + ".3"));
    stopRsyslog();
}

TEST_F(RsyslogTest, EachRecordIsCollectedOnceIfAnotherProgramRotates)
{
    startRsyslog();
    for (int rotation = 0; rotation < 10; ++rotation) {
        logMany(50);
        std::filesystem::rename(path, path + "-202611" + std::to_string(10 + rotation));
        logMany(50);
        ASSERT_TRUE(logger.reopen());
        logMany(50);
        expectAllCollected();
        ASSERT_FALSE(HasFailure()) << rotation;
    }
    stopRsyslog();
}

TEST_F(RsyslogTest, RecordsOfTheTimeInWhichItDidNotRunAreCollected)
{
    startRsyslog();
    for (int restart = 0; restart < 3; ++restart) {
        logMany(500);
        stopRsyslog();
        logMany(500);
        startRsyslog();
    }
    stopRsyslog();
}

TEST_F(RsyslogTest, AKilledOneReadsOnlyTheLastRecordsAgain)
{
    startRsyslog();
    logMany(1050);
    expectAllCollected();
    rsyslogd->signal(SIGKILL);
    rsyslogd->wait();
    logMany(1);
    rsyslogd.emplace(command(), scratch.path());
    ASSERT_TRUE(waitFor([this] { return collected().back() == expected.back(); }));
    // At most as many as persistStateInterval.
    const Lines lines = collected();
    EXPECT_LE(lines.size(), expected.size() + 100);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), expected.size());
    stopRsyslog();
}

}
