// Forks and exits of a process whose other threads use all parts of the library.

#include "Run.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using namespace processtest;

const std::string BUSY = PROCESS_BUSY_PROBE;
const std::string PLUGIN = DYN_OTHER;

TEST(ProcessBusy, ForksChildrenThatLogAndExit)
{
    constexpr int CHILDREN = 200;
    // In the child, memory that only a thread of the parent references is not a leak of the library.
    ::setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
    const support::ScratchFolder folder;
    const std::string path = folder.file("a.log");
    const Outcome run({BUSY, "fork", path, std::to_string(CHILDREN), PLUGIN});
    ::unsetenv("LSAN_OPTIONS");
    EXPECT_EQ(0, run.status) << run.errors;
    ASSERT_EQ("", run.output);
    const Lines records = recordsIn(support::readFile(path));
    for (int i = 0; i < CHILDREN; ++i) {
        const std::string child = "child " + std::to_string(i);
        EXPECT_EQ(1, std::count(records.begin(), records.end(), child));
        EXPECT_EQ(1, std::count(records.begin(), records.end(), child + " ends"));
    }
    EXPECT_GT(std::count(records.begin(), records.end(), "concurrent"), 0);
}

TEST(ProcessBusy, ProcessEndsWhileItsThreadsRun)
{
    constexpr int TIMES = 20;
    for (int i = 0; i < TIMES; ++i) {
        const support::ScratchFolder folder;
        const std::string path = folder.file("a.log");
        const Outcome run({BUSY, "exit", path, PLUGIN});
        EXPECT_EQ(0, run.status) << run.errors;
        const Lines records = recordsIn(support::readFile(path));
        EXPECT_EQ(1, std::count(records.begin(), records.end(), "the program ends"));
    }
}

}
