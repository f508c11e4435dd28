#include "NimhostPluginFixture.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <sys/stat.h>

namespace {

using support::ChildProcess;
using support::readFile;
using support::writeFile;
using testing::HasSubstr;
using testing::Not;

/** Configurations that are reloaded on SIGHUP, and invalid values. */
class NimhostReloadTest : public NimhostPluginFixture
{
protected:
    /** Starts a host that logs a few records per second. */
    ChildProcess run(const std::string& file) const
    {
        return ChildProcess(command({"--config", file, "--threads", "1", "--seconds", "60"}), scratch.path());
    }

    /** Expects that the host keeps its configuration, for this reason. */
    void expectKept(const ChildProcess& host, const std::string& reason)
    {
        host.signal(SIGHUP);
        expected += "nimhost: " + reason + "\n";
        ASSERT_TRUE(waitFor([&] { return host.errors() == expected; })) << host.errors();
        EXPECT_TRUE(logHolds("ERROR Host.cpp "));
        EXPECT_TRUE(logHolds("nimhost keeps its configuration : " + reason + "\n"));
        EXPECT_THAT(logText(), Not(HasSubstr("nimhost has reloaded")));
    }

    static std::string badLog(const std::string& file)
    {
        return file + ": Bad log configuration: ";
    }

    /** Returns the error message for a log file that cannot be opened. */
    static std::string unopenable(const std::string& name, const std::string& path, const std::string& error)
    {
        return LOG + "file = \"" + name + "\" must be a path that can be opened, but " + path + ": " + error;
    }

    const std::string common = "/source/rate = 50\n";

private:
    std::string expected;
};

}

TEST_F(NimhostReloadTest, InvalidValueKeepsTheWholeConfiguration)
{
    const std::string file = configure(fileSettings(""), common);
    ChildProcess host = run(file);
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));
    // Each configuration also changes the severity, which must not take effect.
    const std::string louder = fileSettings(LOG + "severity.id = DEBUG\n");

    configure(louder, common + "pool/threads = many\n");
    expectKept(host, file + ": threads of pool must be a number of at least 1, not \"many\"");
    configure(louder, common + "pool/pending = 10k\n");
    expectKept(host, file + ": pending of pool must be a number of at least 1, not \"10k\"");
    configure(louder, common + "host/plugins = a/b\n");
    expectKept(host, file + ": plugins of host must be a list of names, not \"a/b\"");
    configure(louder, common + "host/adapters = a/b\n");
    expectKept(host, file + ": adapters of host must be a list of names, not \"a/b\"");
    configure(louder, common + "host/end.seconds = soon\n");
    expectKept(host, file + ": end.seconds of host must be a number of at least 0, not \"soon\"");
    configure(louder, common + "host/stuck.seconds = soon\n");
    expectKept(host, file + ": stuck.seconds of host must be a number of at least 0, not \"soon\"");
    configure(louder, "/source/rate = 50 a second\n");
    expectKept(host, file + ": source/rate of source-0 must be a number of at least 0, not \"50 a second\"");
    const std::string names = "names separated by white space, out of NONE, ";
    configure(louder + LOG + "maxFileSize = 10 MB\n" + LOG + "localtime = maybe\n" + LOG + "colour = blue\n",
              common);
    expectKept(host,
               badLog(file) + LOG
                   + "colour = \"blue\" is not a setting; the settings are escape.enable, fallback.enable, "
                     "priorityPrefix, file.mode, stream, file, directory, localtime, timeFormat, "
                     "severity.mask, severity.id, "
                     "output.mask, modules, modules.limits, remote.enable, maxNumberOfFiles and maxFileSize; "
                   + LOG + "localtime = \"maybe\" must be true or false; " + LOG
                   + "maxFileSize = \"10 MB\" must be a decimal number of bytes, or one directly "
                     "followed by k, M, G, KiB, MiB or GiB");
    configure(louder + LOG + "maxNumberOfFiles = -1\n", common);
    expectKept(host, badLog(file) + LOG + "maxNumberOfFiles = \"-1\" must be a decimal number");
    configure(louder + LOG + "output.mask = SEVERITY COLOUR\n", common);
    expectKept(host, badLog(file) + LOG + "output.mask = \"SEVERITY COLOUR\" must be " + names
                         + "DATETIME, TIMEZONE, SEVERITY, HOSTNAME, PROCESSNAME, PROCESSID, THREADID, "
                           "MODULENAME, SOURCEFILE and LINENUMBER");
    configure(louder + LOG + "severity.mask = ERROR LOUD\n", common);
    expectKept(host, badLog(file) + LOG + "severity.mask = \"ERROR LOUD\" must be " + names
                         + "TRACE, DEBUG, INFO, NOTICE, WARNING, ERROR and FATAL");
    configure(LOG + "stream = PRINTER\n", common);
    expectKept(host, badLog(file) + LOG + "stream = \"PRINTER\" must be STDERR, STDOUT, STDLOG or CIMOM");
    configure(LOG + "stream = CIMOM\n", common);
    expectKept(host, badLog(file) + LOG
                         + "stream = \"CIMOM\" must be available, but CIMOM stream is not available");
    EXPECT_THAT(logText(), Not(HasSubstr("Changing logging settings: Severity")));

    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 2);
    EXPECT_EQ(tableRow(host.output(), "configurations rejected"), 13U);
    EXPECT_EQ(tableRow(host.output(), "configurations reloaded"), 0U);
}

TEST_F(NimhostReloadTest, LogDirectoryThatCannotBeCreatedIsReported)
{
    const std::string file = configure(LOG + "directory = none/log\n" + LOG + "file = host.log\n");
    expectRejected(
        {"--config", file, "--records", "1"},
        "nimhost: " + badLog(file)
            + unopenable("host.log", scratch.file("none/log/host.log"), "No such file or directory"));
    writeFile(scratch.file("file"), "");
    configure(LOG + "directory = file/log\n" + LOG + "file = host.log\n");
    expectRejected({"--config", file, "--records", "1"},
                   "nimhost: " + badLog(file)
                       + unopenable("host.log", scratch.file("file/log/host.log"), "Not a directory"));
    configure(LOG + "directory = plugins\n" + LOG + "file = ./\n");
    expectRejected({"--config", file, "--records", "1"},
                   "nimhost: " + badLog(file) + unopenable("./", "./", "Is a directory"));
}

TEST_F(NimhostReloadTest, LogThatCannotBeOpenedKeepsTheCurrentOne)
{
    const std::string file = configure(fileSettings(LOG + "severity.id = INFO\n"), common);
    ChildProcess host = run(file);
    ASSERT_TRUE(logHolds(" answered"));
    configure(LOG + "directory = none/log\n" + LOG + "file = host.log\n", common);
    expectKept(host,
               badLog(file)
                   + unopenable("host.log", scratch.file("none/log/host.log"), "No such file or directory"));
    // Opening a FIFO without a reader would block every log statement.
    ASSERT_EQ(mkfifo(scratch.file("pipe").c_str(), 0600), 0);
    configure(LOG + "directory = .\n" + LOG + "file = pipe\n", common);
    expectKept(host,
               file + ": cannot open the log, " + scratch.file("./pipe") + ": No such device or address");
    const std::size_t before = answers().size();
    EXPECT_TRUE(waitFor([&] { return answers().size() > before; }));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 2);
    expectEachAnswerOnce(host);
}

TEST_F(NimhostReloadTest, NamesSettingsThatRequireARestart)
{
    const std::string file = configureOdd(common + "odd/colour = red\n");
    ChildProcess host(
        command({"--config", file, "--threads", "1", "--seconds", "60", document("d.xml", request("fine"))}),
        scratch.path());
    ASSERT_TRUE(waitFor([&] { return host.output().find("ok") != std::string::npos; }));
    configureOdd(common
                 + "pool/threads = 3\npool/pending = 17\nhost/plugins = odd even\nsource-0/source/queue = 9\n"
                   "host/adapters = odd\nodd/colour = blue\nhost/colour = green\n");
    host.signal(SIGHUP);
    ASSERT_TRUE(
        logHolds("nimhost has reloaded " + file + ", except for 5 settings that require a restart\n"));
    const std::string log = logText();
    EXPECT_THAT(log, HasSubstr("WARNING : host/plugins requires a restart: \"odd\" remains in effect, not "
                               "\"odd even\"\n"));
    EXPECT_THAT(
        log, HasSubstr("WARNING : host/adapters requires a restart: \"\" remains in effect, not \"odd\"\n"));
    EXPECT_THAT(log, HasSubstr("WARNING : pool/threads requires a restart: 1 remains in effect, not 3\n"));
    EXPECT_THAT(log, HasSubstr("WARNING : pool/pending requires a restart: 16 remains in effect, not 17\n"));
    EXPECT_THAT(
        log,
        HasSubstr("WARNING : source/queue of source-0 requires a restart: 8 remains in effect, not 9\n"));
    EXPECT_THAT(log, HasSubstr("NOTICE : the new settings of the plug-in odd take effect when it is "
                               "reloaded\n"));
    EXPECT_THAT(log, HasSubstr("WARNING : WARNING: " + file + ": unknown setting \"host/colour\"\n"));
    EXPECT_THAT(log, Not(HasSubstr("\n\n")));

    configureOdd(common + "odd/colour = red\n");
    host.signal(SIGHUP);
    EXPECT_TRUE(logHolds("nimhost has reloaded " + file + "\n"));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

TEST_F(NimhostReloadTest, ConfigurationWithoutLogSettingsLogsToStandardError)
{
    const std::string file = configure("", "");
    ChildProcess host(command({"--config", file, "--records", "10"}), scratch.path());
    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.errors(), HasSubstr("nimhost starts with 4 sources\n"));
    EXPECT_THAT(host.output(), HasSubstr("  the log is written to a stream, not to files\n"));
}

TEST_F(NimhostReloadTest, RemovedLogSettingsMoveTheLogToStandardError)
{
    const std::string file = configure(fileSettings(""), common);
    ChildProcess host = run(file);
    ASSERT_TRUE(logHolds("nimhost starts with 1 sources"));
    configure("", common);
    host.signal(SIGHUP);
    ASSERT_TRUE(
        waitFor([&] { return host.errors().find("nimhost has reloaded " + file) != std::string::npos; }));
    configure(fileSettings(""), common);
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

TEST_F(NimhostReloadTest, RemovedSettingsRevertToTheirDefaults)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = DEBUG\n" + LOG + "escape.enable = true\n" + LOG
                               + "maxFileSize = 1 GiB\n"),
                  common);
    expectRejected(
        {"--config", file, "--records", "1"},
        "nimhost: " + badLog(file) + LOG
            + "maxFileSize = \"1 GiB\" must be a decimal number of bytes, or one directly followed by "
              "k, M, G, KiB, MiB or GiB");
    configure(fileSettings(LOG + "severity.id = DEBUG\n" + LOG + "escape.enable = true\n" + LOG
                           + "maxFileSize = 1GiB\n"),
              common);
    ChildProcess host = run(file);
    ASSERT_TRUE(logHolds(" answered"));
    configure(fileSettings(""), common);
    host.signal(SIGHUP);
    ASSERT_TRUE(logHolds("nimhost has reloaded " + file));
    // All changes are reported in one record.
    EXPECT_THAT(logText(), HasSubstr(" : Changing logging settings: EscapeControls Severity MaxFileSize\n"
                                     "\tEscapeControls\n\t\told: true\n\t\tnew: false\n"
                                     "\tSeverity\n\t\told: DEBUG\n\t\tnew: NOTICE\n"
                                     "\tMaxFileSize\n\t\told: \"1073741824\"\n\t\tnew: \"0\"\n"));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}

/** For example, a rotation that finds no free descriptor. */
TEST_F(NimhostReloadTest, LogReturnsToItsFileAfterAFailedRotation)
{
    const std::string file =
        configure(fileSettings(LOG + "severity.id = INFO\n" + LOG + "maxFileSize = 2000\n" + LOG
                               + "maxNumberOfFiles = 200\n"),
                  "/source/rate = 200\n");
    const std::string log = scratch.file("log/host.log");
    ChildProcess host = run(file);
    // While the host starts, it creates the file before it opens it.
    ASSERT_TRUE(waitFor([&] { return std::filesystem::exists(log + ".0"); }));
    // The next rotation fails, because there is nothing to rename.
    ASSERT_TRUE(waitFor([&] { return std::filesystem::remove(log); }));
    // The host opens its log again at its next check. Records until then, if any, are on standard error.
    const std::string report = "logging to " + log + " again; the records since ";
    ASSERT_TRUE(waitFor([&] {
        const std::filesystem::directory_iterator files(scratch.file("log"));
        return std::any_of(begin(files), end(files), [&report](const auto& entry) {
            return readFile(entry.path()).find(report) != std::string::npos;
        });
    }));
    host.signal(SIGTERM);
    EXPECT_EQ(host.wait(), 0);
}
