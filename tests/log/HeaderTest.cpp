#include <dalnim/log/Header.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include "Loggers.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <iomanip>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <typeinfo>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

using namespace logtest;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using log::Header;

static_assert(std::is_base_of_v<std::ostringstream, Header>);
static_assert(!std::is_copy_constructible_v<Header> && !std::is_copy_assignable_v<Header>);
static_assert(!std::is_move_constructible_v<Header> && !std::is_move_assignable_v<Header>);
static_assert(std::has_virtual_destructor_v<Header>);

/** An exception of a program's own with a trace in it. */
struct TracedError : std::runtime_error, StackTrace
{
    using std::runtime_error::runtime_error;
};

system_error errorWithTrace()
{
    const StackTrack outer("main()", 0);
    const StackTrack inner("read()", "Disk", "app", 12);
    return system_error(5, "no medium");
}

system_error errorWithoutTrace()
{
    return system_error(5, "no medium");
}

template <class Message>
String trapped(log::Severity severity, const std::exception& exc, const Message& message)
{
    Header header(severity, "x/Source", 1);
    EXPECT_EQ(&header.os(), &header.insertTrapped(exc, message));
    return header.str();
}

TEST(Header, ConstructorStoresThePositionThreadAndTime)
{
    static const char FILE[] = "some/where/Source";
    const std::time_t before = std::time(nullptr);
    const Header header(log::Severity_WARNING, FILE, 251);
    const std::time_t after = std::time(nullptr);

    EXPECT_EQ(log::Severity_WARNING, header.getSeverityId());
    EXPECT_EQ("WARNING", header.getSeverityName());
    EXPECT_EQ(FILE, header.getFile()) << "the text is not copied";
    EXPECT_EQ(251u, header.getLine());
    EXPECT_EQ(::syscall(SYS_gettid), header.getThread());
    EXPECT_LE(before, header.getWhen());
    EXPECT_GE(after, header.getWhen());
    EXPECT_EQ("", header.str());
}

TEST(Header, ThreadIsTheOneThatConstructedIt)
{
    long kernels = 0;
    long headers = 0;
    std::thread([&] {
        kernels = ::syscall(SYS_gettid);
        headers = Header(log::Severity_INFO, "", 1).getThread();
    }).join();
    EXPECT_EQ(kernels, headers);
    EXPECT_NE(::syscall(SYS_gettid), headers);
}

TEST(Header, OsReturnsTheRecordItself)
{
    Header header(log::Severity_INFO, "", 1);
    std::ostream& os = header.os();
    EXPECT_EQ(static_cast<std::ostream*>(&header), &os);
    os << "disk " << 3;
    EXPECT_EQ("disk 3", header.str());
}

TEST(Header, NameOfAnUnknownSeverityThrows)
{
    const Header header(static_cast<log::Severity>(8), "", 1);
    EXPECT_EQ("Unrecognized NIM Log Severity",
              textOf<std::out_of_range>([&header] { header.getSeverityName(); }));
}

TEST(HeaderTrapped, PlainExceptionIsInsertedWithoutNumberAndTrace)
{
    const std::runtime_error exc("it broke");
    for (const log::Severity severity :
         {log::Severity_NONE, log::Severity_TRACE, log::Severity_INFO, log::Severity_NOTICE,
          log::Severity_WARNING, log::Severity_ERROR, log::Severity_FATAL}) {
        EXPECT_EQ("reading failed : it broke\n", trapped(severity, exc, "reading failed"));
    }
}

TEST(HeaderTrapped, DebugAddsTheNameOfTheDynamicType)
{
    EXPECT_EQ("reading failed : it broke\n  St13runtime_error\n",
              trapped(log::Severity_DEBUG, std::runtime_error("it broke"), "reading failed"));
    EXPECT_EQ("reading failed : 5 : no medium\n  N3com3kor3dal3nim3sys12system_errorE\n",
              trapped(log::Severity_DEBUG, errorWithoutTrace(), "reading failed"));
    EXPECT_EQ("reading failed : 5 : no medium\n"
              "  N3com3kor3dal3nim3sys12system_errorE\n"
              "  [1]\tapp.Disk.read():12\n"
              "  [0]\tmain()\n",
              trapped(log::Severity_DEBUG, errorWithTrace(), "reading failed"));
}

TEST(HeaderTrapped, InfoShowsNeitherTypeNorTrace)
{
    EXPECT_EQ("reading failed : 5 : no medium\n",
              trapped(log::Severity_INFO, errorWithTrace(), "reading failed"));
}

TEST(HeaderTrapped, EveryOtherSeverityShowsTheTrace)
{
    for (const log::Severity severity : {log::Severity_NONE, log::Severity_TRACE, log::Severity_NOTICE,
                                         log::Severity_WARNING, log::Severity_ERROR, log::Severity_FATAL}) {
        EXPECT_EQ("reading failed : 5 : no medium\n"
                  "  [1]\tapp.Disk.read():12\n"
                  "  [0]\tmain()\n",
                  trapped(severity, errorWithTrace(), "reading failed"));
    }
}

TEST(HeaderTrapped, EmptyTraceInsertsNothing)
{
    EXPECT_EQ("reading failed : 5 : no medium\n",
              trapped(log::Severity_WARNING, errorWithoutTrace(), "reading failed"));
}

TEST(HeaderTrapped, TraceOfAnyExceptionTypeIsInserted)
{
    const StackTrack track("run()", "Job", "app", 7);
    EXPECT_EQ("job failed : out of luck\n  [0]\tapp.Job.run():7\n",
              trapped(log::Severity_ERROR, TracedError("out of luck"), "job failed"));
    EXPECT_EQ("job failed : out of luck\n",
              trapped(log::Severity_INFO, TracedError("out of luck"), "job failed"));
}

TEST(HeaderTrapped, MessageCanBeAString)
{
    EXPECT_EQ("reading failed : it broke\n",
              trapped(log::Severity_ERROR, std::runtime_error("it broke"), String("reading failed")));
    EXPECT_EQ(" : it broke\n", trapped(log::Severity_ERROR, std::runtime_error("it broke"), String()));
}

TEST(HeaderTrapped, ExceptionIsAppendedToTheText)
{
    Header header(log::Severity_ERROR, "", 1);
    header.os() << "first, ";
    header.insertTrapped(std::runtime_error("it broke"), "then") << "behind";
    EXPECT_EQ("first, then : it broke\nbehind", header.str());
}

TEST(HeaderTrapped, NumberIsDecimalInAStreamWithAnotherBase)
{
    Header header(log::Severity_ERROR, "", 1);
    header.os() << std::hex << std::showbase << 255 << ' ';
    header.insertTrapped(system_error(-12, "gone"), "then");
    EXPECT_EQ("0xff then : -12 : gone\n", header.str());
}

}
