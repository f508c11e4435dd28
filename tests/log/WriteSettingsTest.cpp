#include <dalnim/log/Write.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace logtest;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;
using testing::EndsWith;
using testing::MatchesRegex;

// Reports

TEST(ChangeReport, IsAForcedRecordOfThreeLinesAtInfo)
{
    DefaultLogger logger;
    logger->setOutputMask(log::Mask_ALL);
    logger.taken();
    logger->setSeverity(log::Severity_FATAL);
    EXPECT_THAT(
        logger.taken(),
        MatchesRegex("[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] UTC [0-9]+ "
                     "[^ ]+ log_tests [0-9]+ [0-9]+ com\\.kor\\.dal\\.nim\\.log\\.internal INFO Write [0-9]+ "
                     ": Changing logging setting: Severity\n\told: NOTICE\n\tnew: FATAL\n"));
}

TEST(ChangeReport, IgnoresSeverityAndFilter)
{
    DefaultLogger logger;
    logger->setModuleFilter("other", true);
    logger->setSeverity(log::Severity_FATAL);
    logger.taken();
    logger->setMaxFileSize(1);
    EXPECT_EQ(changed("MaxFileSize", "\"0\"", "\"1\""), logger.taken());
}

TEST(ChangeReport, OtherLoggersDoNotReport)
{
    DefaultLogger defaultLogger;
    OwnLogger logger;
    logger.write.setSeverity(log::Severity_TRACE);
    logger.write.setSeverityMask(log::Severity_ERROR, true);
    logger.write.setSeverityMask(SeverityColl{log::Severity_DEBUG, log::Severity_INFO}, true);
    logger.write.setOutputMask(0);
    logger.write.setLocaltime(true);
    logger.write.setLocaltime(false);
    logger.write.allowRemoteControl(true);
    logger.write.setMaxFileSize(1);
    logger.write.setMaxNumberOfFiles(2);
    logger.write.setModuleFilter("a", true);
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ("", defaultLogger.taken());
}

TEST(ChangeReport, FailureThrowsAfterTheChange)
{
    DefaultLogger logger;
    EXPECT_ANY_THROW(logger->setPath("/nowhere/at/all"));
    EXPECT_ANY_THROW(logger->setSeverity(log::Severity_TRACE));
    EXPECT_EQ(log::Severity_TRACE, logger->getSeverity());
    EXPECT_ANY_THROW(logger->setMaxFileSize(7));
    EXPECT_EQ(7u, logger->getMaxFileSize());
    EXPECT_ANY_THROW(logger->setModuleFilter("a", true));
    EXPECT_EQ((StringColl{"a"}), filterOf(logger.write()));
}

// Output mask

TEST(SetOutputMask, IsReportedUnderTheNewMask)
{
    DefaultLogger logger;
    logger->setOutputMask(20);
    EXPECT_EQ("log_tests INFO : Changing logging setting: OutputMask\n"
              "\told: 0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
              "\tnew: 0x14 [SEVERITY,PROCESSNAME]\n",
              logger.taken());
    logger->setOutputMask(20);
    EXPECT_EQ("", logger.taken());
    logger->setOutputMask(0);
    EXPECT_EQ(" : Changing logging setting: OutputMask\n"
              "\told: 0x14 [SEVERITY,PROCESSNAME]\n"
              "\tnew: 0x0 [NONE]\n",
              logger.taken());
    logger->setOutputMask(1023);
    EXPECT_EQ(1023u, logger->getOutputMask());
    logger.taken();
    logger->setOutputMask(2);
    EXPECT_EQ(" : Changing logging setting: OutputMask\n"
              "\told: 0x3ff [DATETIME,TIMEZONE,SEVERITY,HOSTNAME,PROCESSNAME,PROCESSID,THREADID,MODULENAME,"
              "SOURCEFILE,LINENUMBER]\n"
              "\tnew: 0x2 [TIMEZONE]\n",
              logger.taken());
}

TEST(SetOutputMask, ThrowsAboveAllBits)
{
    DefaultLogger logger;
    for (const unsigned int mask : {1024u, 0xFFFFFFFFu}) {
        EXPECT_EQ("Illegal Output Mask", textOf<std::out_of_range>([&] { logger->setOutputMask(mask); }));
    }
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(0x184u, logger->getOutputMask());
}

// Local time and remote control

TEST(SetLocaltime, IsReportedAndReturnsTheOldSetting)
{
    DefaultLogger logger;
    EXPECT_FALSE(logger->setLocaltime(true));
    EXPECT_EQ(changed("TimestampInLocalTime", "false", "true"), logger.taken());
    EXPECT_TRUE(logger->getLocaltime());
    EXPECT_TRUE(log::LOG_LOCALTIME);
    EXPECT_TRUE(logger->setLocaltime(true));
    EXPECT_EQ("", logger.taken());
    EXPECT_TRUE(logger->setLocaltime(false));
    EXPECT_EQ(changed("TimestampInLocalTime", "true", "false"), logger.taken());
    EXPECT_FALSE(log::LOG_LOCALTIME);
}

TEST(SetLocaltime, IsOneSettingForAllLoggers)
{
    DefaultLogger logger;
    logger->setOutputMask(log::Mask_DATETIME);
    logger.taken();
    Write other;
    EXPECT_FALSE(other.setLocaltime(true));
    EXPECT_EQ("", logger.taken()) << "not reported";
    EXPECT_TRUE(logger->getLocaltime());
    writeError(logger.write(), "text");
    EXPECT_THAT(logger.taken(),
                MatchesRegex("[A-Z][a-z][a-z] [A-Z][a-z][a-z] .* [+-][0-9][0-9][0-9][0-9] [0-9]+ : text\n"));
    EXPECT_TRUE(logger->setLocaltime(false));
    EXPECT_FALSE(other.getLocaltime());
}

TEST(AllowRemoteControl, IsReportedAndReturnsTheOldSetting)
{
    DefaultLogger logger;
    EXPECT_FALSE(logger->allowRemoteControl(true));
    EXPECT_EQ(changed("RemoteControlAllowed", "false", "true"), logger.taken());
    EXPECT_TRUE(logger->remoteControlAllowed());
    EXPECT_TRUE(logger->allowRemoteControl(true));
    EXPECT_EQ("", logger.taken());
    EXPECT_TRUE(logger->allowRemoteControl(false));
    EXPECT_EQ(changed("RemoteControlAllowed", "true", "false"), logger.taken());
    EXPECT_FALSE(logger->remoteControlAllowed());
}

TEST(AllowRemoteControl, IsASettingOfEachLogger)
{
    DefaultLogger logger;
    Write other;
    other.allowRemoteControl(true);
    EXPECT_TRUE(other.remoteControlAllowed());
    EXPECT_FALSE(logger->remoteControlAllowed());
}

// Path

TEST(SetPath, IsReportedInTheNewFile)
{
    const Folder folder;
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    EXPECT_EQ(folder / "a.log", logger->getPath());
    EXPECT_EQ("", logger.taken());
    EXPECT_THAT(contentOf(folder / "a.log"), EndsWith("\tModuleFilter: *\n"
                                                      + changed("OutputPath", "\"<user assigned stream>\"",
                                                                '"' + (folder / "a.log") + '"')));
    logger->setPath(folder / "b.log");
    EXPECT_THAT(contentOf(folder / "b.log"), EndsWith("\tModuleFilter: *\n"
                                                      + changed("OutputPath", '"' + (folder / "a.log") + '"',
                                                                '"' + (folder / "b.log") + '"')));
}

TEST(SetPath, SettingTheCurrentPathChangesNothing)
{
    const Folder folder;
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    const String before = contentOf(folder / "a.log");
    std::ios* const stream = logger->getStream();
    logger->setPath(folder / "a.log");
    EXPECT_EQ(before, contentOf(folder / "a.log"));
    EXPECT_EQ(stream, logger->getStream());
}

TEST(SetPath, EmptyPathSelectsStandardError)
{
    const Folder folder;
    Captured err(std::cerr);
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    err.taken();
    logger->setPath("");
    EXPECT_EQ("\tOutputPath:   \"STDERR\"\n"
              "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
              "\tSeverityMin:  NOTICE\n"
              "\tModuleFilter: *\n"
                  + changed("OutputPath", '"' + (folder / "a.log") + '"', "\"\""),
              behindFirstLine(err.taken()));
    EXPECT_EQ("", logger->getPath());
}

TEST(SetPath, EmptyPathWithoutAFileChangesNothing)
{
    DefaultLogger logger;
    logger->setPath("");
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(&asIos(logger.sink), logger->getStream());
}

TEST(SetPath, OpensTheFileWithTheFirstRecord)
{
    const Folder folder;
    OwnLogger logger;
    logger.write.setPath(folder / "a.log");
    EXPECT_FALSE(logfiletest::exists(folder / "a.log"));
    EXPECT_FALSE(logger.write.is_open());
    EXPECT_FALSE(logger.write.is_valid());
    EXPECT_FALSE(logger.write.is_reserved());
    writeError(logger.write, "text");
    EXPECT_EQ("global ERROR Source : text\n", contentOf(folder / "a.log"));
    EXPECT_TRUE(logger.write.is_open());
    EXPECT_TRUE(logger.write.is_valid());
    EXPECT_FALSE(logger.write.is_reserved());
}

// Stream

TEST(SetStream, ByNameIsReportedInTheNewStream)
{
    DefaultLogger logger;
    Captured out(std::cout);
    Captured err(std::cerr);
    logger->setStream("STDOUT");
    EXPECT_THAT(out.taken(), EndsWith("\tModuleFilter: *\n"
                                      + changed("OutputStream", "\"<user assigned stream>\"", "\"STDOUT\"")));
    logger->setStream("STDOUT");
    EXPECT_EQ("", out.taken());
    logger->setStream("STDERR");
    EXPECT_THAT(err.taken(), EndsWith(changed("OutputStream", "\"STDOUT\"", "\"STDERR\"")));
    {
        Captured log(std::clog);
        logger->setStream("STDLOG");
        EXPECT_THAT(log.taken(), EndsWith(changed("OutputStream", "\"STDERR\"", "\"STDLOG\"")));
        EXPECT_EQ(&asIos(std::clog), logger->getStream());
    }
    EXPECT_EQ("", out.taken());
    EXPECT_EQ("", err.taken());
}

TEST(SetStream, ByNameReplacesAFile)
{
    const Folder folder;
    DefaultLogger logger;
    Captured out(std::cout);
    logger->setPath(folder / "a.log");
    logger->setStream("STDOUT");
    EXPECT_THAT(out.taken(), EndsWith(changed("OutputStream", '"' + (folder / "a.log") + '"', "\"STDOUT\"")));
    EXPECT_EQ("", logger->getPath());
}

TEST(SetStream, ToTheCurrentStreamChangesNothing)
{
    Write logger;
    Captured err(std::cerr);
    logger.setStream("STDERR");
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
    EXPECT_EQ("", err.taken());
}

TEST(SetStream, UnknownNameThrows)
{
    DefaultLogger logger;
    for (const char* const name : {"other", "", "stdout", "STDOUT ", "cimom", "<user assigned stream>"}) {
        EXPECT_EQ("Illegal output stream name", textOf<std::out_of_range>([&] { logger->setStream(name); }))
            << name;
    }
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ(&asIos(logger.sink), logger->getStream());
}

TEST(SetStream, StreamOfTheCallerIsNotReported)
{
    DefaultLogger logger;
    std::ostringstream other;
    logger->setStream(other);
    EXPECT_EQ("", logger.taken());
    EXPECT_EQ("", take(other));
    EXPECT_EQ(&asIos(other), logger->getStream());
    logger->setStream(asIos(logger.sink));
}

TEST(SetStream, InputStreamThrows)
{
    DefaultLogger logger;
    std::istringstream input;
    EXPECT_EQ("Supplied std::ios is not a std::ostream.",
              textOf<std::invalid_argument>([&] { logger->setStream(input); }));
    EXPECT_EQ(&asIos(logger.sink), logger->getStream());
}

// Limits

TEST(SetMaxFileSize, IsReported)
{
    DefaultLogger logger;
    logger->setMaxFileSize(1000000);
    EXPECT_EQ(changed("MaxFileSize", "\"0\"", "\"1000000\""), logger.taken());
    EXPECT_EQ(1000000u, logger->getMaxFileSize());
    logger->setMaxFileSize(1000000);
    EXPECT_EQ("", logger.taken());
    logger->setMaxFileSize(~std::size_t(0));
    EXPECT_EQ(changed("MaxFileSize", "\"1000000\"", "\"18446744073709551615\""), logger.taken());
}

TEST(SetMaxNumberOfFiles, IsReported)
{
    DefaultLogger logger;
    logger->setMaxNumberOfFiles(5);
    EXPECT_EQ(changed("MaxFiles", "\"0\"", "\"5\""), logger.taken());
    EXPECT_EQ(5u, logger->getMaxNumberOfFiles());
    logger->setMaxNumberOfFiles(5);
    EXPECT_EQ("", logger.taken());
}

TEST(SetMaxNumberOfFiles, DeletesExcessFilesBeforeItsReport)
{
    const Folder folder;
    for (const char* const name : {"a.log.0", "a.log.1", "a.log.2"}) {
        logfiletest::create(folder / name, "old");
    }
    Captured err(std::cerr);
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    logger->setMaxNumberOfFiles(1);
    EXPECT_EQ((std::vector<String>{"a.log", "a.log.0"}), logfiletest::namesIn(folder.path()));
}

// Module filter

TEST(SetModuleFilter, IsReportedEachTime)
{
    DefaultLogger logger;
    logger->setModuleFilter("a.*", true);
    EXPECT_EQ(REPORT + String("ModuleFilter\n\tmodule \"a.*\" added\n"), logger.taken());
    logger->setModuleFilter("a.*", true);
    EXPECT_EQ(REPORT + String("ModuleFilter\n\tmodule \"a.*\" added\n"), logger.taken());
    logger->setModuleFilter("b", false);
    EXPECT_EQ(REPORT + String("ModuleFilter\n\tmodule \"b\" removed\n"), logger.taken());
    EXPECT_EQ((StringColl{"a.*"}), filterOf(logger.write()));
    logger->setModuleFilter("a.b", false);
    EXPECT_EQ(REPORT + String("ModuleFilter\n\tmodule \"a.b\" removed\n"), logger.taken());
    EXPECT_EQ(StringColl(), filterOf(logger.write()));
}

TEST(SetModuleFilter, EmptyNameAddsNothingAndRemovesAll)
{
    DefaultLogger logger;
    logger->setModuleFilter("a", true);
    logger->setModuleFilter("b", true);
    logger.taken();
    logger->setModuleFilter("", true);
    EXPECT_EQ(REPORT + String("ModuleFilter\n\tmodule \"\" added\n"), logger.taken());
    EXPECT_EQ((StringColl{"a", "b"}), filterOf(logger.write()));
    logger->setModuleFilter("", false);
    EXPECT_EQ(REPORT + String("ModuleFilter\n\tmodule \"\" removed\n"), logger.taken());
    EXPECT_EQ(StringColl(), filterOf(logger.write()));
}

TEST(SetModuleFilter, DisablesOtherModules)
{
    OwnLogger logger;
    Module a("a.x", logger.write);
    Module b("b", logger.write);
    logger.write.setModuleFilter("a.*", true);
    EXPECT_TRUE(a.isSeveritySatisfied(log::Severity_WARNING));
    EXPECT_FALSE(b.isSeveritySatisfied(log::Severity_WARNING));
    logger.write.setModuleFilter("", false);
    EXPECT_TRUE(b.isSeveritySatisfied(log::Severity_WARNING));
}

// Names

TEST(Overloads, StayVisibleOnEveryKindOfLogger)
{
    Write write;
    write.setSeverity("DEBUG");
    EXPECT_EQ(log::Severity_DEBUG, write.getSeverity());
    write.setSeverityMask("ERROR", true);
    EXPECT_EQ((SeverityColl{log::Severity_ERROR}), maskOf(write));
    log::Log& asLog = write;
    asLog.setSeverity("INFO");
    EXPECT_EQ(log::Severity_INFO, write.getSeverity());
    asLog.setSeverityMask("TRACE", true);
    EXPECT_EQ((SeverityColl{log::Severity_TRACE}), maskOf(write));
    log::Control& control = write;
    control.setSeverity("WARNING");
    EXPECT_EQ(log::Severity_WARNING, write.getSeverity());
    control.setSeverityMask("FATAL", true);
    EXPECT_EQ((SeverityColl{log::Severity_FATAL}), maskOf(write));
    control.setSeverityMask(SeverityColl{log::Severity_DEBUG, log::Severity_ERROR}, true);
    EXPECT_EQ((SeverityColl{log::Severity_DEBUG, log::Severity_ERROR, log::Severity_FATAL}), maskOf(write));
    Captured out(std::cout);
    std::ostringstream sink;
    write.setStream("STDOUT");
    EXPECT_EQ(&asIos(std::cout), write.getStream());
    write.setStream(sink);
    EXPECT_EQ(&asIos(sink), write.getStream());
    asLog.setStream("STDOUT");
    asLog.setStream(sink);
    EXPECT_EQ(&asIos(sink), asLog.getStream());
}

}
