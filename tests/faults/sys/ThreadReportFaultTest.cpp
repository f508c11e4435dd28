// Reports of threads are taken from servers that may be short of memory.

#include "layer/Fault.hpp"
#include "layer/Walk.hpp"

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/ThreadReport.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <csignal>
#include <unistd.h>

namespace {

using namespace faults;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::ThreadReport;
using com::kor::dal::nim::sys::internal::ThreadState;

typedef std::unique_ptr<ThreadReport> Report;

const char* const NAME = "a_function_with_a_name_that_needs_memory_of_its_own()";

TEST(ThreadReportFault, ReportIsCompleteOrThrows)
{
    ThreadReport::install();
    EXPECT_GE(walkAllocations([] { return Report(); },
                              [](Report& report) {
                                  const StackTrack track(NAME, 1);
                                  report = std::make_unique<ThreadReport>();
                              },
                              [](Report& report, bool done) {
                                  ASSERT_EQ(done, report != nullptr);
                                  if (done) {
                                      EXPECT_EQ(0U, report->silent());
                                      EXPECT_NE(std::string::npos,
                                                report->toString().find(std::string("[0] ") + NAME));
                                  }
                              }),
              5u);
}

TEST(ThreadReportFault, TextIsCompleteOrThrows)
{
    ThreadReport::install();
    ThreadState::current();
    const StackTrack track(NAME, 1);
    const ThreadReport report;
    const std::string whole = report.toString();
    EXPECT_GE(walkAllocations(
                  [] { return std::string(); }, [&](std::string& text) { text = report.toString(); },
                  [&](const std::string& text, bool done) { EXPECT_EQ(done ? whole : std::string(), text); }),
              3u);
}

TEST(ThreadReportFault, SignalNeedsNoMemory)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ThreadReport::installSignal(SIGUSR2, ends[1]);
    const StackTrack track(NAME, 1);
    unsigned int allocations = 0;
    {
        Fault noMemory(Call::NEW, ENOMEM);
        Fault noMoreMemory(Call::MALLOC, ENOMEM);
        std::raise(SIGUSR2);
        allocations = noMemory.calls() + noMoreMemory.calls();
    }
    std::signal(SIGUSR2, SIG_DFL);
    EXPECT_EQ(0U, allocations);
    char text[4096];
    const ssize_t length = read(ends[0], text, sizeof text);
    close(ends[0]);
    close(ends[1]);
    ASSERT_GT(length, 0);
    EXPECT_NE(std::string::npos,
              std::string(text, static_cast<std::size_t>(length)).find(std::string("[0] ") + NAME));
}

}
