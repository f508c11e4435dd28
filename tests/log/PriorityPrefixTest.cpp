// The priority in front of the lines that the log writes to standard error.

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <dalnim/io/Properties.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <typeinfo>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace logtest;
using log::Module;
using log::Severity;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;
using testing::MatchesRegex;

/** The setting, until the end of a scope. */
class Prefixes
{
public:
    Prefixes()
    {
        logger.setPriorityPrefix(true);
    }
    Prefixes(const Prefixes&) = delete;
    Prefixes& operator=(const Prefixes&) = delete;
    ~Prefixes()
    {
        logger.setPriorityPrefix(false);
    }

private:
    Write logger;
};

/** A logger on standard error with the prefix "<severity> : ". */
struct ErrLogger : Write
{
    ErrLogger()
    {
        setOutputMask(log::Mask_SEVERITY);
    }
};

void writeRecord(log::Log& logger, Severity severity, const String& text)
{
    log::Header header(severity, "x/Source", 7);
    header.os() << text;
    logger.log(Module::DEFAULT_INSTANCE, header, true);
}

TEST(PriorityPrefix, IsOffAtFirst)
{
    Captured err(std::cerr);
    ErrLogger logger;
    EXPECT_FALSE(logger.getPriorityPrefix());
    writeRecord(logger, log::Severity_ERROR, "text");
    EXPECT_EQ("ERROR : text\n", err.taken());
    EXPECT_FALSE(logger.setPriorityPrefix(true));
    EXPECT_TRUE(logger.getPriorityPrefix());
    EXPECT_TRUE(logger.setPriorityPrefix(false));
    EXPECT_FALSE(logger.getPriorityPrefix());
}

TEST(PriorityPrefix, IsThatOfTheSeverity)
{
    const Prefixes on;
    Captured err(std::cerr);
    ErrLogger logger;
    for (int severity = log::Severity_MIN; severity <= log::Severity_MAX; ++severity) {
        writeRecord(logger, static_cast<Severity>(severity), "text");
    }
    EXPECT_EQ("<7>NONE : text\n<7>TRACE : text\n<7>DEBUG : text\n<6>INFO : text\n<5>NOTICE : text\n"
              "<4>WARNING : text\n<3>ERROR : text\n<2>FATAL : text\n",
              err.taken());
}

TEST(PriorityPrefix, IsInFrontOfEveryLineOfARecord)
{
    const Prefixes on;
    Captured err(std::cerr);
    ErrLogger logger;
    writeRecord(logger, log::Severity_WARNING, "one\n\n<2>two\n\n");
    EXPECT_EQ("<4>WARNING : one\n<4>\n<4><2>two\n", err.taken());
    const String line(700, 'x');
    writeRecord(logger, log::Severity_WARNING, line + '\n' + line + '\n' + line);
    EXPECT_EQ("<4>WARNING : " + line + "\n<4>" + line + "\n<4>" + line + '\n', err.taken());
}

TEST(PriorityPrefix, IsWrittenToTheDescriptor)
{
    const Folder folder;
    const Prefixes on;
    ErrLogger logger;
    ErrLogger clog;
    clog.setStream("STDLOG");
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    const int file = ::open((folder / "err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ::dup2(file, STDERR_FILENO);
    writeRecord(logger, log::Severity_WARNING, "one\ntwo");
    writeRecord(clog, log::Severity_FATAL, "three");
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    ::close(file);
    EXPECT_EQ("<4>WARNING : one\n<4>two\n<2>FATAL : three\n", contentOf(folder / "err"));
}

TEST(PriorityPrefix, OtherOutputsHaveNone)
{
    const Prefixes on;
    const Folder folder;
    Captured out(std::cout);
    std::ostringstream stream;
    ErrLogger logger;
    logger.setPath(folder / "a.log");
    writeRecord(logger, log::Severity_WARNING, "one\ntwo");
    EXPECT_EQ("WARNING : one\ntwo\n", contentOf(folder / "a.log"));
    logger.setStream("STDOUT");
    writeRecord(logger, log::Severity_WARNING, "one\ntwo");
    EXPECT_EQ("WARNING : one\ntwo\n", out.taken());
    logger.setStream(asIos(stream));
    writeRecord(logger, log::Severity_WARNING, "one\ntwo");
    EXPECT_EQ("WARNING : one\ntwo\n", take(stream));
}

TEST(PriorityPrefix, RejectedRecordHasItsOwnAfterThatOfTheMessage)
{
    const Prefixes on;
    Captured err(std::cerr);
    ErrLogger logger;
    logger.setPath("/dev/full");
    writeRecord(logger, log::Severity_NOTICE, "one\ntwo");
    EXPECT_EQ("<3>ERROR: Unable to write to log output stream.\n<5>NOTICE : one\n<5>two\n", err.taken());
    logger.setFallback(true);
    logger.setPath("/nowhere/at/all");
    writeRecord(logger, log::Severity_FATAL, "three");
    EXPECT_EQ("<3>ERROR: Unable to write to log output stream.\n<2>FATAL : three\n", err.taken());
}

TEST(PriorityPrefix, TracesOfFilesHaveThatOfTheirMeaning)
{
    const Prefixes on;
    const Folder folder;
    Captured err(std::cerr);
    ErrLogger logger;
    logger.setPath(folder / "a.log");
    logger.setMaxFileSize(1);
    writeRecord(logger, log::Severity_FATAL, "text");
    EXPECT_THAT(err.taken(), MatchesRegex("(<6>LogFile:[0-9]+:switchFile\\(\\): [^\n]*\n)+"));
    std::filesystem::create_directory(folder / "a.log.1");
    std::filesystem::create_directory(folder / "a.log.1/b");
    logger.setPath("");
    logger.setPath(folder / "a.log");
    logger.setMaxNumberOfFiles(1);
    EXPECT_THAT(err.taken(), testing::HasSubstr("\n<4>LogFile:"));
}

TEST(PriorityPrefix, StreamHeaderHasOneInEachLine)
{
    const Prefixes on;
    DefaultLogger logger;
    Captured err(std::cerr);
    logger->setPriorityPrefix(true);
    EXPECT_THROW(logger->setPath("/nowhere/at/all"), std::exception);
    logger->setPath("");
    logger->setOutputMask(log::Mask_SEVERITY);
    NIM_LOG(Severity_ERROR) << "text";
    const String text = err.taken();
    logger->setPriorityPrefix(false);
    logger->setStream(asIos(logger.sink));
    EXPECT_THAT(text,
                MatchesRegex("<6>[^\n]* INFO Write: Log Configuration:\n(<6>[^\n]*\n)+<3>ERROR : text\n"));
}

/** A logger whose operations Write calls with its lock held. */
struct Subclass : Write
{
    Subclass()
    {
        setOutputMask(log::Mask_SEVERITY);
    }
};

TEST(PriorityPrefix, AppliesToLoggersOfOtherClasses)
{
    const Prefixes on;
    Captured err(std::cerr);
    Subclass subclass;
    writeRecord(subclass, log::Severity_NOTICE, "one\ntwo");
    EXPECT_EQ("<5>NOTICE : one\n<5>two\n", err.taken());
    PlainLog plain;
    plain.mask = log::Mask_SEVERITY;
    plain.setStream(asIos(std::cerr));
    writeRecord(plain, log::Severity_INFO, "one\ntwo");
    EXPECT_EQ("<6>INFO : one\n<6>two\n", err.taken());
    EXPECT_TRUE(plain.getPriorityPrefix());
    EXPECT_THROW(plain.setPriorityPrefix(false), std::bad_cast);
}

TEST(PriorityPrefix, LineWithoutASeverityHasNone)
{
    const Prefixes on;
    Captured err(std::cerr);
    log::LogFileRef file(new log::LogFile);
    file->log("text");
    EXPECT_EQ("text\n", err.taken());
}

/** Logs a record of its own while it is inserted. */
struct Nested
{
    Write& logger;
};

std::ostream& operator<<(std::ostream& os, const Nested& nested)
{
    writeRecord(nested.logger, log::Severity_FATAL, "inner");
    return os << "outer";
}

TEST(PriorityPrefix, NestedRecordDoesNotChangeThatOfTheOuterOne)
{
    const Prefixes on;
    Captured err(std::cerr);
    ErrLogger logger;
    Module module("shop", logger);
    NIM_LOG_TO(module, Severity_WARNING) << Nested{logger};
    EXPECT_EQ("<2>FATAL : inner\n<4>WARNING : outer\n", err.taken());
}

TEST(PriorityPrefix, IsReported)
{
    DefaultLogger logger;
    logger->setPriorityPrefix(true);
    logger->setPriorityPrefix(true);
    EXPECT_EQ(changed("PriorityPrefix", "false", "true"), logger.taken());
    logger->setPriorityPrefix(false);
    EXPECT_EQ(changed("PriorityPrefix", "true", "false"), logger.taken());
}

TEST(PriorityPrefix, IsAKeyOfTheConfiguration)
{
    Captured err(std::cerr);
    Write logger;
    com::kor::dal::nim::io::Properties settings;
    settings.setProperty("com.kor.dal.nim.log.Control.priorityPrefix", "True");
    logger.setConfiguration(settings);
    EXPECT_TRUE(logger.getPriorityPrefix());
    logger.setConfiguration(com::kor::dal::nim::io::Properties());
    EXPECT_TRUE(logger.getPriorityPrefix()) << "a key that is absent changes nothing";
    settings.setProperty("com.kor.dal.nim.log.Control.priorityPrefix", "no");
    logger.setConfiguration(settings);
    EXPECT_FALSE(logger.getPriorityPrefix());
}

}
