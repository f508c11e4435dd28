#include <dalnim/log/Log.hpp>

#include "Loggers.hpp"

#include "LogFileFixture.hpp"

#include "support/InChildProcess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace logtest;
using log::Header;
using log::Module;
using logfiletest::CapturedCerr;

static_assert(std::is_base_of_v<log::Control, log::Log> && std::is_abstract_v<log::Log>);

String hostName()
{
    char name[256] = "";
    EXPECT_EQ(0, ::gethostname(name, sizeof name - 1));
    String text = name;
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

String processId()
{
    return std::to_string(::getpid());
}

String threadId()
{
    return std::to_string(::syscall(SYS_gettid));
}

/** A logger that replaces nothing, a module of it, and a record of a statement of its own. */
class LogTest : public testing::Test
{
protected:
    LogTest() : module("global", logger), record(log::Severity_WARNING, "mt/src/Thread", 251)
    {
        logger.stream = &sink;
    }

    String prefix(unsigned int mask)
    {
        logger.mask = mask;
        return logger.format(module, record);
    }

    PlainLog logger;
    Module module;
    Header record;
    std::ostringstream sink;
};

TEST_F(LogTest, EmptyMaskLeavesTheTerminator)
{
    EXPECT_EQ(" : ", prefix(0));
}

TEST_F(LogTest, TimeZoneBitChangesNothing)
{
    EXPECT_EQ(" : ", prefix(log::Mask_TIMEZONE));
    EXPECT_EQ("WARNING : ", prefix(log::Mask_TIMEZONE | log::Mask_SEVERITY));
}

TEST_F(LogTest, EachBitSelectsItsField)
{
    EXPECT_EQ(log::getDateTime(record.getWhen()) + " : ", prefix(log::Mask_DATETIME));
    EXPECT_EQ(hostName() + " : ", prefix(log::Mask_HOSTNAME));
    EXPECT_EQ("log_tests : ", prefix(log::Mask_PROCESSNAME));
    EXPECT_EQ(processId() + " : ", prefix(log::Mask_PROCESSID));
    EXPECT_EQ(threadId() + " : ", prefix(log::Mask_THREADID));
    EXPECT_EQ("global : ", prefix(log::Mask_MODULENAME));
    EXPECT_EQ("WARNING : ", prefix(log::Mask_SEVERITY));
    EXPECT_EQ("Thread : ", prefix(log::Mask_SOURCEFILE));
    EXPECT_EQ("251 : ", prefix(log::Mask_LINENUMBER));
}

TEST_F(LogTest, OrderOfTheFieldsIsNotThatOfTheBits)
{
    const String all = log::getDateTime(record.getWhen()) + ' ' + hostName() + " log_tests " + processId()
                       + ' ' + threadId() + " global WARNING Thread 251 : ";
    EXPECT_EQ(all, prefix(log::Mask_ALL));
    EXPECT_EQ(all, prefix(log::Mask_ALL & ~static_cast<unsigned int>(log::Mask_TIMEZONE)));
    EXPECT_EQ("WARNING 251 : ", prefix(log::Mask_SEVERITY | log::Mask_LINENUMBER));
    EXPECT_EQ(processId() + " 251 : ", prefix(log::Mask_PROCESSID | log::Mask_LINENUMBER));
    EXPECT_EQ("global WARNING : ", prefix(log::Mask_SEVERITY | log::Mask_MODULENAME));
    EXPECT_EQ("log_tests Thread : ", prefix(log::Mask_PROCESSNAME | log::Mask_SOURCEFILE));
}

TEST_F(LogTest, EmptyFieldHasItsSeparators)
{
    const Module nameless("", logger);
    const Header sourceless(log::Severity_WARNING, "", 1);
    logger.mask = log::Mask_MODULENAME | log::Mask_SEVERITY | log::Mask_SOURCEFILE | log::Mask_LINENUMBER;
    EXPECT_EQ(" WARNING  1 : ", logger.format(nameless, sourceless));
}

TEST_F(LogTest, TheSourceIsTheLastPartOfItsPath)
{
    logger.mask = log::Mask_SOURCEFILE;
    for (const char* const file : {"Disk.cpp", "/a/b.c/Disk.cpp", "../Disk.cpp", "./Disk.cpp"}) {
        EXPECT_EQ("Disk.cpp : ", logger.format(module, Header(log::Severity_INFO, file, 1))) << file;
    }
    EXPECT_EQ("Thread : ", logger.format(module, Header(log::Severity_INFO, "Thread", 1)));
}

TEST_F(LogTest, TheTimeIsThatOfTheStatement)
{
    logger.mask = log::Mask_DATETIME;
    const String first = logger.format(module, record);
    while (std::time(nullptr) == record.getWhen()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(first, logger.format(module, record));
}

TEST_F(LogTest, TheThreadIsThatOfTheStatement)
{
    logger.mask = log::Mask_THREADID;
    String elsewhere;
    std::thread([&] { elsewhere = logger.format(module, record); }).join();
    EXPECT_EQ(threadId() + " : ", elsewhere);
}

TEST_F(LogTest, NumbersAreNotGroupedByTheLocale)
{
    struct Grouping : std::numpunct<char>
    {
        char do_thousands_sep() const override
        {
            return '.';
        }
        std::string do_grouping() const override
        {
            return "\1";
        }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    const String text = prefix(log::Mask_PROCESSID | log::Mask_THREADID | log::Mask_LINENUMBER);
    std::locale::global(before);
    EXPECT_EQ(processId() + ' ' + threadId() + " 251 : ", text);
}

TEST_F(LogTest, ARecordOfUnknownSeverityCannotBeFormatted)
{
    const Header odd(static_cast<log::Severity>(9), "x", 1);
    logger.mask = log::Mask_SEVERITY;
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&] { logger.log(module, odd, true); }));
    logger.mask = log::Mask_LINENUMBER;
    logger.log(module, odd, true);
    EXPECT_EQ("1 : \n", take(sink)) << "the queue is free again";
}

TEST_F(LogTest, ARecordIsPrefixAndTextAndNewline)
{
    logger.mask = log::Mask_SEVERITY | log::Mask_LINENUMBER;
    record.os() << "the text";
    logger.log(module, record, false);
    EXPECT_EQ("WARNING 251 : the text\n", take(sink));
}

TEST_F(LogTest, TheSeverityIsTestedUnlessForced)
{
    logger.mask = log::Mask_SEVERITY;
    Header info(log::Severity_INFO, "x", 1);
    info.os() << "text";
    logger.log(module, info, false);
    EXPECT_EQ("", take(sink));
    EXPECT_EQ(1, logger.asked);
    logger.log(module, info, true);
    EXPECT_EQ("INFO : text\n", take(sink));
    EXPECT_EQ(1, logger.asked) << "a forced record asks nobody";
}

TEST_F(LogTest, TrailingWhiteSpaceOfTheTextIsRemoved)
{
    logger.mask = log::Mask_SEVERITY;
    for (const char* const blanks : {"", "\n", " ", "\n\n\n", " \t\n\v\f\r "}) {
        Header header(log::Severity_WARNING, "x", 1);
        header.os() << "  first\n\tsecond" << blanks;
        logger.log(module, header, false);
        EXPECT_EQ("WARNING :   first\n\tsecond\n", take(sink));
    }
}

TEST_F(LogTest, WhiteSpaceTextKeepsTheTrailingSpace)
{
    for (const char* const blanks : {"", " ", "\n", " \t\n\v\f\r "}) {
        Header header(log::Severity_WARNING, "x", 1);
        header.os() << blanks;
        logger.mask = log::Mask_SEVERITY;
        logger.log(module, header, false);
        EXPECT_EQ("WARNING : \n", take(sink));
        logger.mask = 0;
        logger.log(module, header, false);
        EXPECT_EQ(" : \n", take(sink));
    }
}

TEST_F(LogTest, TextThatEndsLikeAPrefixIsTrimmed)
{
    logger.mask = log::Mask_SEVERITY;
    record.os() << "usage : ";
    logger.log(module, record, false);
    EXPECT_EQ("WARNING : usage :\n", take(sink));
}

TEST_F(LogTest, ALineIsTrimmedToo)
{
    logger.log("text \n\t");
    EXPECT_EQ("text\n", take(sink));
    logger.log(" \n");
    EXPECT_EQ("\n", take(sink));
    logger.log("");
    EXPECT_EQ("\n", take(sink));
    logger.log(String("a\0b ", 4));
    EXPECT_EQ(String("a\0b\n", 4), take(sink));
}

TEST_F(LogTest, SubclassCanOverrideTheLine)
{
    struct Lines : PlainLog
    {
        using PlainLog::log;
        void log(const String& msg) override
        {
            lines.push_back(msg);
        }
        std::vector<String> lines;
    } lines;
    lines.mask = log::Mask_SEVERITY;
    record.os() << "the text \n";
    static_cast<log::Log&>(lines).log(module, record, false);
    EXPECT_EQ((std::vector<String>{"WARNING : the text \n"}), lines.lines) << "joined and not trimmed";
}

TEST_F(LogTest, SubclassCanOverrideTheFormat)
{
    struct Formatted : PlainLog
    {
        String format(const Module& mod, const Header& rec) override
        {
            return "<" + mod.getName() + '|' + std::to_string(rec.getLine()) + ">";
        }
    } logger2;
    logger2.stream = &sink;
    record.os() << "the text";
    static_cast<log::Log&>(logger2).log(module, record, false);
    EXPECT_EQ("<global|251>the text\n", take(sink));
}

TEST_F(LogTest, WithoutAStreamTheLineGoesToStandardError)
{
    CapturedCerr err;
    logger.stream = nullptr;
    logger.log("text  ");
    EXPECT_EQ("ERROR: Unable to write to log output stream.\ntext\n", err.take());
}

TEST_F(LogTest, InputStreamIsNotWrittenTo)
{
    CapturedCerr err;
    std::istringstream input;
    logger.stream = &input;
    logger.log("text");
    EXPECT_EQ("ERROR: Unable to write to log output stream.\ntext\n", err.take());
}

TEST_F(LogTest, LineThatAFailedStreamRejectsIsWrittenToStandardError)
{
    CapturedCerr err;
    sink.setstate(std::ios_base::badbit);
    logger.mask = log::Mask_SEVERITY;
    record.os() << "text";
    logger.log(module, record, false);
    EXPECT_EQ("ERROR: Unable to write to log output stream.\nWARNING : text\n", err.take());
    sink.clear();
    logger.log(module, record, false);
    EXPECT_EQ("", err.take());
    EXPECT_EQ("WARNING : text\n", take(sink));
}

TEST_F(LogTest, SwitchingFilesDoesNothing)
{
    logger.switchFile();
    EXPECT_EQ("", take(sink));
}

TEST_F(LogTest, OverloadsStayVisible)
{
    PlainLog& plain = logger;
    plain.setSeverity("DEBUG");
    EXPECT_EQ(log::Severity_DEBUG, logger.threshold);
    plain.setSeverityMask("ERROR", true);
    EXPECT_EQ((SeverityColl{log::Severity_ERROR}), logger.masked);
    EXPECT_TRUE(logger.maskedOn);
    log::Log& base = logger;
    base.setSeverity("FATAL");
    EXPECT_EQ(log::Severity_FATAL, logger.threshold);
    base.setSeverityMask("TRACE", false);
    EXPECT_EQ((SeverityColl{log::Severity_TRACE}), logger.masked);
    base.setStream("STDOUT");
    std::ostringstream other;
    base.setStream(other);
    EXPECT_EQ(&other, base.getStream());
}

/** Two loggers that replace nothing share one lock: their records never overlap. */
TEST(LogQueue, SerialisesTheRecordsOfAllSuchLoggers)
{
    struct Counting : PlainLog
    {
        explicit Counting(std::atomic<int>& counter) : inside(counter) {}
        using PlainLog::log;
        void log(const String&) override
        {
            if (++inside != 1) {
                overlapped = true;
            }
            std::this_thread::yield();
            --inside;
            ++unguarded;
        }
        std::atomic<int>& inside;
        bool overlapped = false;
        int unguarded = 0;
    };
    std::atomic<int> inside(0);
    Counting one(inside);
    Counting two(inside);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            log::Log& logger = i % 2 == 0 ? one : two;
            const Module& module = log::Module::DEFAULT_INSTANCE;
            for (int n = 0; n < 300; ++n) {
                Header header(log::Severity_ERROR, "x", 1);
                logger.log(module, header, false);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(one.overlapped);
    EXPECT_FALSE(two.overlapped);
    EXPECT_EQ(600, one.unguarded);
    EXPECT_EQ(600, two.unguarded);
}

/** Whatever another thread is in the middle of when the child comes into being. */
TEST(LogQueue, IsFreeInTheChildOfAFork)
{
    struct Slow : PlainLog
    {
        using PlainLog::log;
        void log(const String&) override
        {
            ++inside;
            std::this_thread::yield();
        }
        std::atomic<int> inside{0};
    };
    Slow logger;
    logger.mask = 0;
    std::atomic<bool> isOver(false);
    const auto logOnce = [&] {
        Header header(log::Severity_ERROR, "x", 1);
        log::Log& base = logger;
        base.log(log::Module::DEFAULT_INSTANCE, header, true);
    };
    std::thread busy([&] {
        while (!isOver) {
            logOnce();
        }
    });
    for (int i = 0; i < 50; ++i) {
        for (const int before = logger.inside; logger.inside == before;) {
            std::this_thread::yield();
        }
        EXPECT_EQ(0, support::inChildProcess([&] {
                      ::alarm(30);
                      logOnce();
                  }));
    }
    isOver = true;
    busy.join();
}

/** A record that is written while another exception unwinds the stack. */
TEST(LogQueue, IsReleasedAfterARecordOfADestructor)
{
    std::ostringstream sink;
    PlainLog logger;
    logger.stream = &sink;
    logger.mask = 0;
    struct Last
    {
        ~Last()
        {
            Header header(log::Severity_ERROR, "x", 1);
            header.os() << "last words";
            logger.log(log::Module::DEFAULT_INSTANCE, header, false);
        }
        PlainLog& logger;
    };
    EXPECT_EQ("thrown", textOf<std::runtime_error>([&] {
                  const Last last{logger};
                  throw std::runtime_error("thrown");
              }));
    EXPECT_EQ(" : last words\n", take(sink));
    Header header(log::Severity_ERROR, "x", 1);
    header.os() << "next";
    logger.log(log::Module::DEFAULT_INSTANCE, header, false);
    EXPECT_EQ(" : next\n", take(sink));
}

}
