// How a record becomes a line: the mask that counts, the stream header that comes first, and white space.

#include "LogFileFixture.hpp"
#include "Loggers.hpp"

#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <functional>

#include <dlfcn.h>

namespace {

using namespace logtest;
using com::kor::dal::nim::sys::system_error;
using log::Header;
using log::Module;
using log::Write;
using logfiletest::contentOf;
using logfiletest::Folder;
using testing::EndsWith;
using testing::HasSubstr;

/** Called by the next formatting of a local date on this thread; false makes it fail. */
thread_local std::function<bool()>* at_next_date = nullptr;

/** Runs a body while the next record is formatted, when no lock is held. */
class AtNextDate
{
public:
    explicit AtNextDate(std::function<bool()> body) : action(std::move(body))
    {
        at_next_date = &action;
    }
    AtNextDate(const AtNextDate&) = delete;
    AtNextDate& operator=(const AtNextDate&) = delete;
    ~AtNextDate()
    {
        EXPECT_EQ(nullptr, at_next_date) << "no date was formatted";
        at_next_date = nullptr;
    }

private:
    std::function<bool()> action;
};

}

// Is found before the C library's own.
extern "C" __attribute__((visibility("default"))) std::tm* localtime_r(const std::time_t* time,
                                                                       std::tm* result) noexcept
{
    static const auto next = reinterpret_cast<decltype(&::localtime_r)>(::dlsym(RTLD_NEXT, "localtime_r"));
    if (at_next_date != nullptr) {
        std::function<bool()>& action = *at_next_date;
        at_next_date = nullptr;
        if (!action()) {
            errno = EOVERFLOW;
            return nullptr;
        }
    }
    return next(time, result);
}

namespace {

/** Local time for all loggers, until the end of a scope. */
class LocalTime
{
public:
    explicit LocalTime(Write& any) : logger(any)
    {
        logger.setLocaltime(true);
    }
    LocalTime(const LocalTime&) = delete;
    LocalTime& operator=(const LocalTime&) = delete;
    ~LocalTime()
    {
        logger.setLocaltime(false);
    }

private:
    Write& logger;
};

TEST(RecordLine, MaskThatChangesWhileARecordIsFormattedIsApplied)
{
    OwnLogger logger(log::Mask_DATETIME);
    const LocalTime local(logger.write);
    const AtNextDate change([&logger] {
        logger.write.setOutputMask(log::Mask_SEVERITY);
        return true;
    });
    writeError(logger.write, "text  ");
    EXPECT_EQ("ERROR : text\n", logger.taken());
}

TEST(RecordLine, MaskThatIsRestoredWhileARecordIsFormattedDoesNotChangeIt)
{
    OwnLogger logger(log::Mask_DATETIME | log::Mask_SEVERITY);
    const LocalTime local(logger.write);
    const AtNextDate change([&logger] {
        logger.write.setOutputMask(0);
        logger.write.setOutputMask(log::Mask_DATETIME | log::Mask_SEVERITY);
        return true;
    });
    writeError(logger.write, "text");
    EXPECT_THAT(logger.taken(), testing::MatchesRegex(".* [+-][0-9]+ [0-9]+ ERROR : text\n"));
}

TEST(RecordLine, TimeFormatThatChangesWhileARecordIsFormattedIsApplied)
{
    OwnLogger logger(log::Mask_DATETIME);
    logger.write.setTimeFormat(log::TimeFormat_OFFSET);
    const AtNextDate change([&logger] {
        logger.write.setTimeFormat(log::TimeFormat_UTC);
        return true;
    });
    writeError(logger.write, "text");
    EXPECT_THAT(logger.taken(), testing::MatchesRegex("20[0-9]+-[0-9]+-[0-9]+T[0-9:]+Z : text\n"));
}

/** The default logger on a new output, whose stream header is still to come. */
class NewOutput : public DefaultLogger
{
public:
    NewOutput()
    {
        EXPECT_THROW(write().setPath("/nowhere/at/all"), system_error);
        write().setStream(asIos(sink));
        write().setOutputMask(log::Mask_DATETIME);
        write().setLocaltime(true);
        taken();
        EXPECT_THROW(write().setPath("/nowhere/at/all/again"), system_error);
        write().setStream(asIos(sink));
    }
};

TEST(RecordLine, StreamHeaderIsWrittenAlsoIfTheRecordCannotBeFormatted)
{
    NewOutput logger;
    {
        const AtNextDate failure([] { return false; });
        EXPECT_THROW(NIM_LOG(Severity_ERROR) << "lost", system_error);
    }
    EXPECT_THAT(logger.taken(),
                testing::MatchesRegex("[^\n]* INFO Write: Log Configuration:\n(\t[^\n]*\n)+"));
    NIM_LOG(Severity_ERROR) << "text";
    EXPECT_THAT(logger.taken(), testing::MatchesRegex("[^\n]* : text\n"));
}

// ---- white space ----------------------------------------------------------------------------

TEST(RecordLine, TextThatLooksLikeAPrefixIsTrimmed)
{
    const Folder folder;
    log::LogFileRef file(new log::LogFile);
    file->setPath(folder / "a.log");
    for (const char* const text : {"usage : ", " : ", "global ERROR Source : ", " \t\n"}) {
        file->log(text);
    }
    EXPECT_EQ("usage :\n :\nglobal ERROR Source :\n\n", contentOf(folder / "a.log"));

    PlainLog plain;
    std::ostringstream sink;
    plain.stream = &sink;
    plain.log("usage : ");
    plain.log(" : ");
    EXPECT_EQ("usage :\n :\n", sink.str());
}

TEST(RecordLine, WhiteSpaceTextKeepsTheTrailingSpaceOfThePrefix)
{
    OwnLogger logger;
    for (const char* const text : {"", " ", " \n\t"}) {
        writeError(logger.write, text);
        EXPECT_EQ("global ERROR Source : \n", logger.taken());
    }
}

TEST(RecordLine, PrefixThatContainsATerminatorKeepsItsTrailingSpace)
{
    OwnLogger logger;
    const Module module("a : b", logger.write);
    Header header(log::Severity_ERROR, "x/Source", 7);
    logger.write.log(module, header, false);
    EXPECT_EQ("a : b ERROR Source : \n", logger.taken());
}

/** A logger with a prefix of its own, which ends in spaces. */
struct Formatted : Write
{
    String format(const Module& mod, const Header&) override
    {
        return mod.getName() + ">  ";
    }
};

TEST(RecordLine, PrefixOfASubclassKeepsItsTrailingSpaces)
{
    Formatted logger;
    std::ostringstream sink;
    logger.setStream(asIos(sink));
    writeError(logger, " \n");
    writeError(logger, "text \n");
    EXPECT_EQ("global>  \nglobal>  text\n", sink.str());
}

TEST(RecordLine, PrefixOfAPlainLogKeepsItsTrailingSpaces)
{
    struct Plain : PlainLog
    {
        String format(const Module& mod, const Header&) override
        {
            return mod.getName() + ">  ";
        }
    } logger;
    std::ostringstream sink;
    logger.stream = &sink;
    const Module module("m", logger);
    Header header(log::Severity_ERROR, "x/Source", 7);
    header.os() << " \t";
    static_cast<log::Log&>(logger).log(module, header, false);
    EXPECT_EQ("m>  \n", sink.str());
}

TEST(RecordLine, SubclassThatPassesOnARecordKeepsThePrefixAndTrimsItsOwnTexts)
{
    struct Passing : Write
    {
        using Write::log;
        void log(const String& msg) override
        {
            Write::log(msg);
            Write::log("own : ");
            Write::log(msg + "more ");
        }
    } logger;
    std::ostringstream sink;
    logger.setStream(asIos(sink));
    logger.setOutputMask(log::Mask_SEVERITY);
    writeError(logger, " ");
    EXPECT_EQ("ERROR : \nown :\nERROR :  more\n", sink.str());
}

/** A statement within the writing of another one has a prefix of its own, and gives way to it. */
TEST(RecordLine, NestedRecordDoesNotChangeThePrefixOfTheOuterOne)
{
    struct Nested : Write
    {
        using Write::log;
        void log(const String& msg) override
        {
            writeError(inner, "");
            Write::log(msg);
        }
        Formatted inner;
    } logger;
    std::ostringstream innerSink;
    std::ostringstream sink;
    logger.inner.setStream(asIos(innerSink));
    logger.setStream(asIos(sink));
    logger.setOutputMask(log::Mask_SEVERITY);
    writeError(logger, "");
    EXPECT_EQ("global>  \n", innerSink.str());
    EXPECT_EQ("ERROR : \n", sink.str());
}

}
