#include <dalnim/log/Write.hpp>

#include <dalnim/sys/SysError.hpp>

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <type_traits>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace logtest;
using com::kor::dal::nim::sys::system_error;
using log::Header;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;
using testing::MatchesRegex;
using testing::StartsWith;

static_assert(!std::is_copy_constructible_v<Write> && !std::is_copy_assignable_v<Write>);

constexpr char DATE[] =
    "[A-Z][a-z][a-z] [A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] UTC [0-9]+";

/** The line of a stream header, for this process and thread, as a regular expression. */
String headerLine(const String& severity, const String& message)
{
    return String(DATE) + " [^ ]+ log_tests " + std::to_string(::getpid()) + ' '
           + std::to_string(::syscall(SYS_gettid)) + " com\\.kor\\.dal\\.nim\\.log\\.internal " + severity
           + " Write: " + message;
}

void write(Write& logger, log::Severity severity, const String& text, bool force = false)
{
    Header header(severity, "x/Source", 7);
    header.os() << text;
    logger.log(Module::DEFAULT_INSTANCE, header, force);
}

TEST(Write, StartsOnStandardErrorWithTheDefaults)
{
    const Write logger;
    EXPECT_EQ(log::Severity_NOTICE, logger.getSeverity());
    EXPECT_EQ(1023u, logger.getOutputMask());
    EXPECT_FALSE(logger.remoteControlAllowed());
    EXPECT_FALSE(logger.getLocaltime());
    EXPECT_EQ("", logger.getPath());
    EXPECT_EQ(0u, logger.getMaxFileSize());
    EXPECT_EQ(0u, logger.getMaxNumberOfFiles());
    EXPECT_TRUE(logger.is_open());
    EXPECT_TRUE(logger.is_valid());
    EXPECT_TRUE(logger.is_reserved());
    EXPECT_EQ(&asIos(std::cerr), logger.getStream());
    StringColl names{"cleared"};
    logger.getModuleFilter(names);
    EXPECT_TRUE(names.empty());
    names = {"cleared"};
    logger.getModulesRegisteredDynamic(names);
    EXPECT_TRUE(names.empty());
}

TEST(Write, WritesToStandardErrorWithoutConfiguration)
{
    Captured err(std::cerr);
    Write logger;
    logger.setOutputMask(log::Mask_SEVERITY);
    write(logger, log::Severity_NOTICE, "text");
    EXPECT_EQ("NOTICE : text\n", err.taken());
}

TEST(Write, TheThresholdIsNotice)
{
    const Write logger;
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_NONE));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_TRACE));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_DEBUG));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_INFO));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_NOTICE));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_WARNING));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_ERROR));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_FATAL));
    EXPECT_TRUE(logger.isSeveritySatisfied(static_cast<log::Severity>(8)));
    EXPECT_FALSE(logger.isSeveritySatisfied(static_cast<log::Severity>(-1)));
}

TEST(Write, MaskEnablesOnlyItsSeverities)
{
    Write logger;
    logger.setSeverityMask(SeverityColl{log::Severity_TRACE, log::Severity_ERROR}, true);
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_NONE));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_TRACE));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_DEBUG));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_INFO));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_NOTICE));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_WARNING));
    EXPECT_TRUE(logger.isSeveritySatisfied(log::Severity_ERROR));
    EXPECT_FALSE(logger.isSeveritySatisfied(log::Severity_FATAL));
}

TEST(Write, MaskTestsTheLowFiveBitsOfASeverity)
{
    Write logger;
    logger.setSeverityMask(log::Severity_ERROR, true);
    EXPECT_TRUE(logger.isSeveritySatisfied(static_cast<log::Severity>(32 + 6)));
    EXPECT_FALSE(logger.isSeveritySatisfied(static_cast<log::Severity>(32 + 7)));
    EXPECT_FALSE(logger.isSeveritySatisfied(static_cast<log::Severity>(-1)));
    EXPECT_FALSE(logger.isSeveritySatisfied(static_cast<log::Severity>(14)));
}

TEST(Write, ErrorsBypassTheFilterButNotTheSeverityCheck)
{
    OwnLogger logger;
    Module module("silent", logger.write);
    logger.write.setModuleFilter("other", true);
    NIM_LOG_TO(module, Severity_WARNING) << "no";
    NIM_LOG_TO(module, Severity_ERROR) << "yes";
    EXPECT_EQ("silent ERROR WriteTest.cpp : yes\n", logger.taken());
    logger.write.setSeverity(log::Severity_FATAL);
    NIM_LOG_TO(module, Severity_ERROR) << "no";
    EXPECT_EQ("", logger.taken());
}

TEST(Write, SeverityOfARecordIsCheckedUnlessForced)
{
    OwnLogger logger;
    logger.write.setModuleFilter("other", true);
    write(logger.write, log::Severity_INFO, "no");
    EXPECT_EQ("", logger.taken());
    write(logger.write, log::Severity_INFO, "forced", true);
    write(logger.write, log::Severity_NOTICE, "the filter is not asked here");
    EXPECT_EQ("global INFO Source : forced\nglobal NOTICE Source : the filter is not asked here\n",
              logger.taken());
}

TEST(Write, TextOfSeveralLinesHasOnePrefix)
{
    OwnLogger logger;
    write(logger.write, log::Severity_ERROR, "one\n\ttwo \n\n");
    write(logger.write, log::Severity_ERROR, "  ");
    EXPECT_EQ("global ERROR Source : one\n\ttwo\nglobal ERROR Source : \n", logger.taken());
}

TEST(Write, ModuleIsNotRegisteredIfItsNameIs)
{
    Write other;
    const Module first("a", other);
    const Module second("a", other);
    const Module third("b", other);
    Write logger;
    logger.registerModule(first);
    logger.registerModule(second);
    logger.registerModule(third);
    logger.registerModule(first);
    StringColl names;
    logger.getModulesRegisteredDynamic(names);
    EXPECT_EQ((StringColl{"a", "b"}), names);
    logger.unregisterModule(second);
    logger.getModulesRegisteredDynamic(names);
    EXPECT_EQ((StringColl{"a", "b"}), names) << "the name alone does not count";
    logger.unregisterModule(first);
    logger.getModulesRegisteredDynamic(names);
    EXPECT_EQ((StringColl{"b"}), names);
    logger.registerModule(second);
    logger.getModulesRegisteredDynamic(names);
    EXPECT_EQ((StringColl{"b", "a"}), names);
}

TEST(Write, StaticAndDynamicListsOfModulesAreTheSame)
{
    Write logger;
    const Module fixed("fixed", logger);
    Module::getInstance("dynamic", logger);
    const Module last("last", logger);
    StringColl dynamic;
    StringColl fixedOnes{"cleared"};
    logger.getModulesRegisteredDynamic(dynamic);
    logger.getModulesRegisteredStatic(fixedOnes);
    EXPECT_EQ((StringColl{"fixed", "dynamic", "last"}), dynamic);
    EXPECT_EQ((StringColl{"fixed", "dynamic", "last"}), fixedOnes);
}

TEST(Write, DestructorDeletesTheDynamicModules)
{
    auto logger = std::make_unique<Write>();
    const auto fixed =
        std::make_unique<Module>("a name that is too long to be kept within the string", *logger);
    for (int i = 0; i < 3; ++i) {
        Module::getInstance("a name that is too long to be kept within the string " + std::to_string(i),
                            *logger);
    }
    logger.reset();
    // The sanitizers report leaks and double frees.
}

TEST(Write, OnlyTheDefaultLoggerWritesAStreamHeader)
{
    const Folder folder;
    OwnLogger logger;
    EXPECT_EQ(&asIos(logger.sink), logger.write.getStream());
    EXPECT_EQ("", logger.taken());
    logger.write.setPath(folder / "a.log");
    write(logger.write, log::Severity_ERROR, "first");
    EXPECT_NE(nullptr, logger.write.getStream());
    EXPECT_EQ("global ERROR Source : first\n", contentOf(folder / "a.log"));
    {
        Captured out(std::cout);
        logger.write.setStream("STDOUT");
        write(logger.write, log::Severity_ERROR, "second");
        EXPECT_EQ("global ERROR Source : second\n", out.taken());
    }
}

TEST(StreamHeader, PrecedesTheFirstRecordOfEachOutput)
{
    const Folder folder;
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    NIM_LOG(Severity_ERROR) << "first";
    NIM_LOG(Severity_ERROR) << "second";
    const String text = contentOf(folder / "a.log");
    EXPECT_THAT(firstLine(text), MatchesRegex(headerLine("INFO", "Log Configuration:")));
    EXPECT_EQ("\tOutputPath:   \"" + (folder / "a.log")
                  + "\"\n"
                    "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
                    "\tSeverityMin:  NOTICE\n"
                    "\tModuleFilter: *\n"
                  + String(REPORT)
                  + "OutputPath\n"
                    "\told: \"<user assigned stream>\"\n"
                    "\tnew: \""
                  + (folder / "a.log")
                  + "\"\n"
                    "global ERROR WriteTest.cpp : first\n"
                    "global ERROR WriteTest.cpp : second\n",
              behindFirstLine(text));
}

TEST(StreamHeader, ShowsTheMaskAndTheFilter)
{
    const Folder folder;
    DefaultLogger logger;
    logger->setOutputMask(0);
    logger->setSeverityMask(SeverityColl{log::Severity_NOTICE, log::Severity_ERROR}, true);
    logger->setModuleFilter("b", true);
    logger->setModuleFilter("a.*", true);
    logger->setPath(folder / "a.log");
    EXPECT_THAT(behindFirstLine(contentOf(folder / "a.log")),
                StartsWith("\tOutputPath:   \"" + (folder / "a.log")
                           + "\"\n"
                             "\tOutputMask:   0x0 [NONE]\n"
                             "\tSeverityMask: 0x50 [NOTICE,ERROR]\n"
                             "\tModuleFilter:\n"
                             "\tb\n"
                             "\ta.*\n"
                             " : Changing logging setting: OutputPath\n"));
}

TEST(StreamHeader, IgnoresTheOutputMaskAndTheSeverity)
{
    const Folder folder;
    DefaultLogger logger;
    logger->setOutputMask(log::Mask_SEVERITY);
    logger->setSeverity(log::Severity_FATAL);
    logger->setPath(folder / "a.log");
    EXPECT_THAT(firstLine(contentOf(folder / "a.log")),
                MatchesRegex(headerLine("INFO", "Log Configuration:")));
}

TEST(StreamHeader, IsNotRepeatedForAStreamOfTheCaller)
{
    DefaultLogger logger;
    std::ostringstream other;
    logger->setStream(other);
    NIM_LOG(Severity_ERROR) << "text";
    EXPECT_EQ("global ERROR WriteTest.cpp : text\n", take(other));
    logger->setStream(asIos(logger.sink));
    EXPECT_EQ("", logger.taken()) << "no report";
}

TEST(StreamHeader, IsNotRepeatedAfterARotation)
{
    const Folder folder;
    Captured err(std::cerr);
    DefaultLogger logger;
    logger->setPath(folder / "a.log");
    logger->setMaxFileSize(1);
    NIM_LOG(Severity_ERROR) << "in a file of its own";
    EXPECT_EQ("", contentOf(folder / "a.log"));
    EXPECT_EQ("global ERROR WriteTest.cpp : in a file of its own\n", contentOf(folder / "a.log.0"));
}

TEST(StreamHeader, IsWrittenByGetStream)
{
    DefaultLogger logger;
    Captured out(std::cout);
    logger->setStream("STDOUT");
    const String first = out.taken();
    EXPECT_THAT(firstLine(first), MatchesRegex(headerLine("INFO", "Log Configuration:")));
    EXPECT_EQ(&asIos(std::cout), logger->getStream());
    EXPECT_EQ("", out.taken()) << "once";
}

TEST(StreamHeader, IsWrittenByGetStreamOfAFile)
{
    const Folder folder;
    DefaultLogger logger;
    {
        // The file cannot be opened by the report, so that its header is still to come.
        EXPECT_THROW(logger->setPath(folder / "missing/deeper/a.log"), system_error);
    }
    std::filesystem::create_directories(folder / "missing/deeper");
    std::ios* const stream = logger->getStream();
    ASSERT_NE(nullptr, stream);
    EXPECT_TRUE(stream->good());
    const String text = contentOf(folder / "missing/deeper/a.log");
    EXPECT_THAT(firstLine(text), MatchesRegex(headerLine("INFO", "Log Configuration:")));
    EXPECT_EQ("\tOutputPath:   \"" + (folder / "missing/deeper/a.log")
                  + "\"\n"
                    "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
                    "\tSeverityMin:  NOTICE\n"
                    "\tModuleFilter: *\n",
              behindFirstLine(text));
}

/** A path that leads to a device without room. A rotation would move the link away, not the device. */
String fullDevice(const Folder& folder)
{
    std::filesystem::create_symlink("/dev/full", folder / "full");
    return folder / "full";
}

TEST(StreamHeader, OutputThatRejectsItIsReplacedByStandardError)
{
    const Folder folder;
    const String path = fullDevice(folder);
    DefaultLogger logger;
    Captured err(std::cerr);
    logger->setPath(path);
    NIM_LOG(Severity_ERROR) << "text";
    const String text = err.taken();
    EXPECT_THAT(firstLine(text),
                MatchesRegex(headerLine("ERROR", "Unable to write to log output stream \"" + path
                                                     + "\": No space left on device; Log Configuration:")));
    EXPECT_EQ("\tOutputPath:   \"STDERR\"\n"
              "\tOutputMask:   0x184 [SEVERITY,MODULENAME,SOURCEFILE]\n"
              "\tSeverityMin:  NOTICE\n"
              "\tModuleFilter: *\n"
                  + String(REPORT)
                  + "OutputPath\n"
                    "\told: \"<user assigned stream>\"\n"
                    "\tnew: \""
                  + path
                  + "\"\n"
                    "global ERROR WriteTest.cpp : text\n",
              behindFirstLine(text));
    EXPECT_EQ("", logger->getPath());
    EXPECT_EQ(&asIos(std::cerr), logger->getStream());
}

TEST(StreamHeader, GetStreamReturnsStandardErrorIfTheOutputRejectsIt)
{
    DefaultLogger logger;
    Captured err(std::cerr);
    Captured out(std::cout);
    logger->setStream("STDOUT");
    out.taken();
    // A refused header on the way: the path is new, and nothing was written yet.
    EXPECT_THROW(logger->setPath("/nowhere/at/all"), system_error);
    logger->setStream(asIos(std::cout));
    std::cout.setstate(std::ios_base::badbit);
    std::ios* const stream = logger->getStream();
    std::cout.clear();
    EXPECT_EQ(&asIos(std::cerr), stream);
    EXPECT_EQ("", out.taken());
    EXPECT_THAT(firstLine(err.taken()),
                MatchesRegex(headerLine("ERROR", "Unable to write to log output stream \"STDOUT\": .*; "
                                                 "Log Configuration:")));
}

TEST(StreamHeader, ThrowsIfStandardErrorRejectsIt)
{
    DefaultLogger logger;
    Captured err(std::cerr);
    EXPECT_THROW(logger->setPath("/nowhere/at/all"), system_error);
    logger->setStream(asIos(std::cerr));
    std::cerr.setstate(std::ios_base::badbit);
    for (int i = 0; i < 2; ++i) {
        try {
            NIM_LOG(Severity_ERROR) << "lost";
            ADD_FAILURE() << "nothing raised";
        } catch (const system_error& exc) {
            EXPECT_EQ(String("Unable to write to log output stream \"STDERR\": ")
                          + com::kor::dal::nim::sys::sys_err_string(exc.error()),
                      exc.what());
        }
    }
    std::cerr.clear();
    EXPECT_EQ("", err.taken());
    NIM_LOG(Severity_ERROR) << "and again";
    const String text = err.taken();
    EXPECT_THAT(firstLine(text), MatchesRegex(headerLine("INFO", "Log Configuration:")))
        << "the next record tries the header again";
    EXPECT_THAT(text, testing::EndsWith("\tModuleFilter: *\nglobal ERROR WriteTest.cpp : and again\n"));
}

TEST(StreamHeader, ThrowsBothErrorsIfFileAndStandardErrorRejectIt)
{
    const Folder folder;
    const String path = fullDevice(folder);
    DefaultLogger logger;
    Captured err(std::cerr);
    std::cerr.setstate(std::ios_base::badbit);
    try {
        logger->setPath(path);
        ADD_FAILURE() << "nothing raised";
    } catch (const system_error& exc) {
        EXPECT_EQ("Unable to write to log output stream \"" + path
                      + "\": " + com::kor::dal::nim::sys::sys_err_string(exc.error()),
                  exc.what());
    }
    std::cerr.clear();
    EXPECT_EQ("", err.taken());
    EXPECT_EQ("", logger->getPath()) << "the setting has changed, and the output has been left";
    NIM_LOG(Severity_ERROR) << "text";
    EXPECT_THAT(firstLine(err.taken()), MatchesRegex(headerLine("INFO", "Log Configuration:")));
}

TEST(StreamHeader, FailureReleasesTheLockOfTheLogger)
{
    DefaultLogger logger;
    EXPECT_THROW(logger->setPath("/nowhere/at/all"), system_error);
    EXPECT_THROW(write(logger.write(), log::Severity_ERROR, "text"), system_error);
    EXPECT_THROW(logger->getStream(), system_error);
    EXPECT_EQ("/nowhere/at/all", logger->getPath());
}

/** The ordinary route of a failure: the line goes to standard error, and the output stays. */
TEST(WriteFailure, LineThatTheOutputRejectsIsWrittenToStandardError)
{
    const Folder folder;
    const String path = fullDevice(folder);
    Captured err(std::cerr);
    OwnLogger logger;
    logger.write.setPath(path);
    write(logger.write, log::Severity_ERROR, "text");
    EXPECT_EQ("ERROR: Unable to write to log output stream.\nglobal ERROR Source : text\n", err.taken());
    EXPECT_EQ(path, logger.write.getPath());
    EXPECT_FALSE(logger.write.is_open());
    EXPECT_TRUE(logger.write.is_valid());
    EXPECT_FALSE(logger.write.is_reserved());
}

TEST(WriteFailure, StatementThrowsIfTheFileCannotBeOpened)
{
    OwnLogger logger;
    Module module("m", logger.write);
    logger.write.setPath("/nowhere/at/all");
    EXPECT_THROW(NIM_LOG_TO(module, Severity_ERROR) << "text", system_error);
    EXPECT_EQ("/nowhere/at/all", logger.write.getPath());
    EXPECT_FALSE(logger.write.is_open());
    EXPECT_FALSE(logger.write.is_valid());
}

/** A logger of a subclass: what it replaces is called on the record path. */
TEST(WriteSubclass, MayTakeLinesAndFormat)
{
    struct Subclass : Write
    {
        String format(const Module& mod, const Header&) override
        {
            return mod.getName() + "> ";
        }
        using Write::log;
        void log(const String& msg) override
        {
            lines.push_back(msg);
        }
        std::vector<String> lines;
    } logger;
    write(logger, log::Severity_ERROR, "text \n");
    write(logger, log::Severity_INFO, "below");
    EXPECT_EQ((std::vector<String>{"global> text \n"}), logger.lines);
}

/** Its own lines go the way of all others: to the output, one at a time. */
TEST(WriteSubclass, MayFormatAlone)
{
    struct Subclass : Write
    {
        String format(const Module& mod, const Header&) override
        {
            return mod.getName() + "> ";
        }
    } logger;
    std::ostringstream output;
    logger.setStream(output);
    write(logger, log::Severity_ERROR, "text \n");
    write(logger, log::Severity_INFO, "below");
    write(logger, log::Severity_FATAL, "more");
    EXPECT_EQ("global> text\nglobal> more\n", output.str());
}

}
