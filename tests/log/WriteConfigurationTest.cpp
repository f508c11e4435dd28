#include <dalnim/io/Properties.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/sys/System.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <initializer_list>
#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace {

using namespace logtest;
using com::kor::dal::nim::io::Properties;
using com::kor::dal::nim::sys::System;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;

/** A table of the log's settings. */
struct Settings : Properties
{
    Settings(std::initializer_list<std::pair<const char*, String>> settings)
    {
        for (const auto& setting : settings) {
            setProperty(String("com.kor.dal.nim.log.Control.") + setting.first, setting.second);
        }
    }
};

/** Returns the current date in UTC, as in file names. */
String today()
{
    const std::time_t now = std::time(nullptr);
    std::tm tm = {};
    ::gmtime_r(&now, &tm);
    char text[16];
    std::strftime(text, sizeof text, "%Y%m%d", &tm);
    return text;
}

/** Returns the path of a logger with these settings. */
String pathBy(const Settings& settings)
{
    Write logger;
    logger.setConfiguration(settings);
    return logger.getPath();
}

/** Compares pathBy() with the path that `expected` returns for the current date, also at midnight. */
template <class Expected>
void expectPath(Expected expected, const Settings& settings)
{
    const String before = today();
    const String path = pathBy(settings);
    EXPECT_TRUE(path == expected(before) || path == expected(today()))
        << path << " instead of " << expected(before);
}

TEST(Configuration, WithoutKeysSelectsStandardErrorAndChangesNothingElse)
{
    const Folder folder;
    Write logger;
    logger.setPath(folder / "a.log");
    logger.setSeverity(log::Severity_DEBUG);
    logger.setOutputMask(4);
    logger.setModuleFilter("a", true);
    logger.allowRemoteControl(true);
    logger.setLocaltime(true);
    logger.setMaxFileSize(10);
    logger.setMaxNumberOfFiles(3);
    logger.setConfiguration(Properties());
    EXPECT_EQ("", logger.getPath());
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
    EXPECT_EQ(log::Severity_DEBUG, logger.getSeverity());
    EXPECT_EQ(4u, logger.getOutputMask());
    EXPECT_EQ((StringColl{"a"}), filterOf(logger));
    EXPECT_TRUE(logger.remoteControlAllowed());
    EXPECT_TRUE(logger.setLocaltime(false));
    EXPECT_EQ(10u, logger.getMaxFileSize());
    EXPECT_EQ(3u, logger.getMaxNumberOfFiles());
}

TEST(Configuration, EmptyValuesCountAsAbsent)
{
    Write logger;
    logger.setSeverity(log::Severity_DEBUG);
    logger.setOutputMask(4);
    logger.setModuleFilter("a", true);
    logger.allowRemoteControl(true);
    logger.setMaxFileSize(10);
    logger.setMaxNumberOfFiles(3);
    logger.setConfiguration(Settings{{"stream", ""},
                                     {"file", ""},
                                     {"directory", ""},
                                     {"localtime", ""},
                                     {"severity.mask", ""},
                                     {"severity.id", ""},
                                     {"output.mask", ""},
                                     {"modules", ""},
                                     {"remote.enable", ""},
                                     {"maxNumberOfFiles", ""},
                                     {"maxFileSize", ""}});
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
    EXPECT_EQ(log::Severity_DEBUG, logger.getSeverity());
    EXPECT_EQ(4u, logger.getOutputMask());
    EXPECT_EQ((StringColl{"a"}), filterOf(logger));
    EXPECT_TRUE(logger.remoteControlAllowed());
    EXPECT_FALSE(logger.getLocaltime());
    EXPECT_EQ(10u, logger.getMaxFileSize());
    EXPECT_EQ(3u, logger.getMaxNumberOfFiles());
}

TEST(Configuration, ReturningToStandardErrorIsNotReported)
{
    const Folder folder;
    Captured err(std::cerr);
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    const String before = contentOf(folder / "a.log");
    System::setConfiguration(Properties());
    EXPECT_EQ(before, contentOf(folder / "a.log"));
    NIM_LOG(Severity_ERROR) << "text";
    EXPECT_EQ("global ERROR WriteConfigurationTest.cpp : text\n", err.taken()) << "no report, no new header";
}

TEST(ConfigurationFile, WithoutADirectoryIsInLog)
{
    EXPECT_EQ("log/a.log", pathBy({{"file", "a.log"}}));
}

TEST(ConfigurationFile, IsInItsDirectory)
{
    EXPECT_EQ("/tmp/a.log", pathBy({{"file", "a.log"}, {"directory", "/tmp"}}));
    EXPECT_EQ("/tmp//a.log", pathBy({{"file", "a.log"}, {"directory", "/tmp/"}}));
    EXPECT_EQ("rel/a.log", pathBy({{"file", "a.log"}, {"directory", "rel"}}));
}

TEST(ConfigurationFile, WithAPathIgnoresTheDirectory)
{
    EXPECT_EQ("/var/a.log", pathBy({{"file", "/var/a.log"}, {"directory", "/tmp"}}));
    EXPECT_EQ("./a.log", pathBy({{"file", "./a.log"}, {"directory", "/tmp"}}));
    EXPECT_EQ("a/", pathBy({{"file", "a/"}, {"directory", "/tmp"}}));
    EXPECT_EQ("C:\\a.log", pathBy({{"file", "C:\\a.log"}, {"directory", "/tmp"}}));
    EXPECT_EQ("/a.log", pathBy({{"file", "/a.log"}}));
}

TEST(ConfigurationFile, LastPlaceholderIsReplacedByTheDate)
{
    expectPath([](const String& date) { return "/var/x-" + date + ".log"; },
               {{"file", "/var/x-<date>.log"}, {"directory", "/tmp"}});
    expectPath([](const String& date) { return "log/<date>-" + date; }, {{"file", "<date>-<date>"}});
    expectPath([](const String& date) { return "/tmp/" + date; },
               {{"file", "<date>"}, {"directory", "/tmp"}});
    EXPECT_EQ("log/<Date>.log", pathBy({{"file", "<Date>.log"}}));
    EXPECT_EQ("<date>/a", pathBy({{"directory", "<date>"}, {"file", "a"}})) << "of the file alone";
}

TEST(ConfigurationFile, ADirectoryAloneNamesTheFileAfterTheProcess)
{
    expectPath([](const String& date) { return "/tmp/log_tests-" + date + ".log"; }, {{"directory", "/tmp"}});
}

TEST(ConfigurationFile, DateIsUtcEvenWithLocalTime)
{
    // At any time, the date in one of these two zones differs from the date in UTC.
    for (const char* const zone : {"AHEAD-14", "BEHIND12"}) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        log::LOG_LOCALTIME = true;
        expectPath([](const String& date) { return "/tmp/log_tests-" + date + ".log"; },
                   {{"directory", "/tmp"}});
        log::LOG_LOCALTIME = false;
    }
    ::unsetenv("TZ");
    ::tzset();
}

TEST(ConfigurationStream, TakesPrecedenceOverTheFile)
{
    Write logger;
    logger.setConfiguration(Settings{{"stream", "STDOUT"}, {"file", "a.log"}, {"directory", "/tmp"}});
    EXPECT_EQ("", logger.getPath());
    EXPECT_EQ(&asIos(std::cout), logger.getStream());
    logger.setConfiguration(Settings{{"stream", "STDLOG"}});
    EXPECT_EQ(&asIos(std::clog), logger.getStream());
    logger.setConfiguration(Settings{{"stream", "STDERR"}});
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
}

TEST(ConfigurationStream, UnknownNameThrowsBeforeAnythingChanges)
{
    Write logger;
    EXPECT_EQ("Illegal output stream name", textOf<std::out_of_range>([&] {
                  logger.setConfiguration(Settings{{"stream", "other"}, {"severity.id", "DEBUG"}});
              }));
    EXPECT_EQ("CIMOM stream is not available", textOf<std::invalid_argument>([&] {
                  logger.setConfiguration(Settings{{"stream", "CIMOM"}, {"severity.id", "DEBUG"}});
              }));
    EXPECT_EQ(log::Severity_NOTICE, logger.getSeverity());
}

TEST(ConfigurationStream, MayBeTheFileOfAnotherLogger)
{
    OwnLogger owner;
    const Module module("com_kor_dal_nim_log_module_CIMOM", owner.write);
    Write logger;
    logger.registerModule(module);
    logger.setConfiguration(Settings{{"stream", "CIMOM"}, {"maxFileSize", "10"}});
    EXPECT_EQ(&asIos(owner.sink), logger.getStream());
    EXPECT_EQ(0u, owner.write.getMaxFileSize());
    logger.setConfiguration(Properties());
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
    EXPECT_EQ(&asIos(owner.sink), owner.write.getStream());
}

TEST(ConfigurationFlags, AreTrueOnlyForTrueIgnoringCase)
{
    Write logger;
    for (const char* const yes : {"true", "TRUE", "True", "tRuE"}) {
        logger.setConfiguration(Settings{{"localtime", yes}, {"remote.enable", yes}});
        EXPECT_TRUE(logger.getLocaltime()) << yes;
        EXPECT_TRUE(logger.remoteControlAllowed()) << yes;
        for (const char* const no : {"false", "1", "yes", "on", "true ", " true", "truely", "t"}) {
            logger.setConfiguration(Settings{{"localtime", no}, {"remote.enable", no}});
            EXPECT_FALSE(logger.getLocaltime()) << no;
            EXPECT_FALSE(logger.remoteControlAllowed()) << no;
        }
    }
}

TEST(ConfigurationSeverity, IsAThreshold)
{
    Write logger;
    logger.setConfiguration(Settings{{"severity.id", "WARNING"}});
    EXPECT_EQ(log::Severity_WARNING, logger.getSeverity());
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger));
    EXPECT_EQ("Unrecognized NIM Log Severity", textOf<std::out_of_range>([&] {
                  logger.setConfiguration(Settings{{"severity.id", "warning"}});
              }));
    EXPECT_EQ(log::Severity_WARNING, logger.getSeverity());
}

TEST(ConfigurationSeverity, MaskIsAddedToTheExistingMask)
{
    Write logger;
    logger.setConfiguration(Settings{{"severity.mask", "ERROR FATAL"}});
    EXPECT_EQ((SeverityColl{log::Severity_ERROR, log::Severity_FATAL}), maskOf(logger));
    logger.setConfiguration(Settings{{"severity.mask", "DEBUG"}});
    EXPECT_EQ((SeverityColl{log::Severity_DEBUG, log::Severity_ERROR, log::Severity_FATAL}), maskOf(logger));
    logger.setConfiguration(Settings{{"severity.mask", "\t INFO\n\rTRACE \v\f "}});
    EXPECT_EQ((SeverityColl{log::Severity_TRACE, log::Severity_DEBUG, log::Severity_INFO, log::Severity_ERROR,
                            log::Severity_FATAL}),
              maskOf(logger));
}

TEST(ConfigurationSeverity, MaskTakesPrecedenceOverTheThreshold)
{
    Write logger;
    logger.setConfiguration(Settings{{"severity.mask", "ERROR"}, {"severity.id", "TRACE"}});
    EXPECT_EQ((SeverityColl{log::Severity_ERROR}), maskOf(logger));
    EXPECT_EQ(log::Severity_ERROR, logger.getSeverity());
    Write other;
    other.setConfiguration(Settings{{"severity.mask", "  "}, {"severity.id", "TRACE"}});
    EXPECT_EQ(log::Severity_NOTICE, other.getSeverity()) << "not empty, if without a name";
}

TEST(ConfigurationOutputMask, CombinesTheBits)
{
    Write logger;
    logger.setConfiguration(Settings{{"output.mask", "SEVERITY  LINENUMBER\tDATETIME"}});
    EXPECT_EQ(517u, logger.getOutputMask());
    logger.setConfiguration(Settings{{"output.mask", "SEVERITY SEVERITY"}});
    EXPECT_EQ(4u, logger.getOutputMask()) << "anew, unlike the severities";
    logger.setConfiguration(Settings{{"output.mask", "NONE"}});
    EXPECT_EQ(0u, logger.getOutputMask());
    logger.setOutputMask(4);
    logger.setConfiguration(Settings{{"output.mask", " "}});
    EXPECT_EQ(0u, logger.getOutputMask());
}

TEST(ConfigurationOutputMask, UnknownBitThrowsAndEarlierSettingsAreInEffect)
{
    Write logger;
    EXPECT_EQ("Unrecognized NIM Log Output Mask Bit", textOf<std::out_of_range>([&] {
                  logger.setConfiguration(Settings{{"file", "a.log"},
                                                   {"severity.id", "DEBUG"},
                                                   {"output.mask", "SEVERITY severity"},
                                                   {"modules", "a"},
                                                   {"maxFileSize", "10"}});
              }));
    EXPECT_EQ("log/a.log", logger.getPath());
    EXPECT_EQ(log::Severity_DEBUG, logger.getSeverity());
    EXPECT_EQ(1023u, logger.getOutputMask());
    EXPECT_EQ(StringColl(), filterOf(logger));
    EXPECT_EQ(0u, logger.getMaxFileSize());
}

TEST(ConfigurationModules, AreAddedToTheExistingFilter)
{
    Write logger;
    logger.setConfiguration(Settings{{"modules", "b a.*\n*"}});
    EXPECT_EQ((StringColl{"b", "a.*", "*"}), filterOf(logger));
    logger.setConfiguration(Settings{{"modules", " c b "}});
    EXPECT_EQ((StringColl{"b", "a.*", "*", "c"}), filterOf(logger));
}

TEST(ConfigurationLimits, AreTheNumbersAtTheBeginningOfTheValues)
{
    const std::pair<const char*, std::size_t> values[] = {
        {"0", 0},    {"1", 1},      {"1048576", 1048576},
        {"10k", 10}, {"12 34", 12}, {"k10", 0},
        {"-5", 0},   {"+5", 0},     {"0x10", 0},
        {"010", 10}, {"1,000", 1},  {"18446744073709551615", ~std::size_t(0)},
    };
    for (const auto& value : values) {
        Write logger;
        logger.setMaxFileSize(77);
        logger.setMaxNumberOfFiles(77);
        logger.setConfiguration(Settings{{"maxFileSize", value.first}, {"maxNumberOfFiles", value.first}});
        EXPECT_EQ(value.second, logger.getMaxFileSize()) << value.first;
        EXPECT_EQ(value.second, logger.getMaxNumberOfFiles()) << value.first;
    }
}

TEST(ConfigurationLimits, ApplyToTheSelectedFile)
{
    const Folder folder;
    for (const char* const name : {"a.log.0", "a.log.1", "a.log.2"}) {
        logfiletest::create(folder / name, "old");
    }
    Captured err(std::cerr);
    Write logger;
    logger.setConfiguration(Settings{{"file", folder / "a.log"}, {"maxNumberOfFiles", "1"}});
    EXPECT_EQ((std::vector<String>{"a.log.0"}), logfiletest::namesIn(folder.path()));
}

TEST(ConfigurationOrder, IsShownByTheReports)
{
    const Folder folder;
    DefaultLogger logger;
    System::setConfiguration(Settings{{"file", folder / "a.log"},
                                      {"localtime", "true"},
                                      {"severity.mask", "ERROR"},
                                      {"severity.id", "DEBUG"},
                                      {"output.mask", "MODULENAME SEVERITY"},
                                      {"modules", "a b.*"},
                                      {"remote.enable", "TRUE"},
                                      {"maxNumberOfFiles", "5"},
                                      {"maxFileSize", "1000000"}});
    String expected = "\tOutputPath:   \"" + (folder / "a.log")
                      + "\"\n"
                        "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
                        "\tSeverityMin:  NOTICE\n"
                        "\tModuleFilter: *\n";
    expected += changed("OutputPath", "\"<user assigned stream>\"", '"' + (folder / "a.log") + '"');
    expected += changed("TimestampInLocalTime", "false", "true");
    expected += changed("SeverityMask", "0x0 [NONE]", "0x40 [ERROR]");
    // The following reports do not contain the source.
    const String report = "com.kor.dal.nim.log.internal INFO : Changing logging setting: ";
    expected += report
                + "OutputMask\n\told: 0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
                  "\tnew: 0x84 [SEVERITY,MODULENAME]\n";
    expected += report + "ModuleFilter\n\tmodule \"a\" added\n";
    expected += report + "ModuleFilter\n\tmodule \"b.*\" added\n";
    expected += report + "RemoteControlAllowed\n\told: false\n\tnew: true\n";
    expected += report + "MaxFiles\n\told: \"0\"\n\tnew: \"5\"\n";
    expected += report + "MaxFileSize\n\told: \"0\"\n\tnew: \"1000000\"\n";
    EXPECT_EQ(expected, behindFirstLine(contentOf(folder / "a.log")));
}

TEST(SystemConfiguration, AppliesToTheDefaultLogger)
{
    DefaultLogger logger;
    Properties settings;
    settings.setProperty("com.kor.dal.nim.log.Control.stream", "STDERR");
    settings.setProperty("com.kor.dal.nim.log.Control.severity.id", "FATAL");
    settings.setProperty("severity.id", "DEBUG");
    settings.setProperty("com.kor.dal.nim.log.control.severity.mask", "DEBUG");
    Captured err(std::cerr);
    System::setConfiguration(settings);
    EXPECT_EQ(log::Severity_FATAL, logger->getSeverity());
    EXPECT_EQ((SeverityColl{log::Severity_NONE}), maskOf(logger.write()));
    EXPECT_THAT(err.taken(), testing::EndsWith(String(REPORT) + "Severity\n\told: NOTICE\n\tnew: FATAL\n"));
}

TEST(SystemConfiguration, BadValuesThrow)
{
    DefaultLogger logger;
    EXPECT_EQ("Illegal output stream name", textOf<std::out_of_range>([] {
                  System::setConfiguration(Settings{{"stream", "other"}});
              }));
}

}
