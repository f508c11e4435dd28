// Forks and signals of a process whose threads hold locks of the C and the C++ library.

#include "Run.hpp"

#include <support/LongRun.hpp>
#include <support/Sanitizers.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

using namespace processtest;

constexpr int NO_LOCALE = 77;

TEST(ProcessFork, ChildrenDoNotHangWhenTheyLogWithLocalTimeAndANamedLocale)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "a child of several threads may not start any under the thread sanitizer";
    }
    const std::string times = support::isLongRun() ? "100000" : "500";
    const support::ScratchFolder folder;
    const std::string path = folder.file("a.log");
    const Outcome run({PROCESS_FORK_PROBE, "fork", path, times});
    if (run.status == NO_LOCALE) {
        GTEST_SKIP() << "the system has no locale C.UTF-8";
    }
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("children " + times + ", hung 0\n", run.output);
}

/** Returns the number that follows a word. */
long numberOf(const std::string& word, const std::string& text)
{
    const std::size_t at = text.find(word + ' ');
    return at == std::string::npos ? -1 : std::stol(text.substr(at + word.size() + 1));
}

TEST(ProcessSignals, StatementsInASignalHandlerNeitherHangNorDamageInterruptedRecords)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the thread sanitizer calls handlers later, and not as the system does";
    }
    const long records = support::isLongRun() ? 1000000 : 100000;
    const support::ScratchFolder folder;
    const std::string path = folder.file("a.log");
    const Outcome run({PROCESS_FORK_PROBE, "signals", path, std::to_string(records)});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_GT(numberOf("refused", run.output), 0);
    EXPECT_EQ(numberOf("calls", run.output),
              numberOf("handled", run.output) + numberOf("refused", run.output));
    long next = 0;
    long handled = 0;
    for (const std::string& record : recordsIn(support::readFile(path))) {
        if (record.compare(0, 8, "handler ") == 0) {
            EXPECT_EQ(std::to_string(++handled), record.substr(8));
        } else if (record.compare(0, 7, "record ") == 0) {
            ASSERT_EQ("record " + std::to_string(next)
                          + std::string(static_cast<std::size_t>(next % 2000), '.'),
                      record);
            ++next;
        }
    }
    EXPECT_EQ(records, next);
    EXPECT_EQ(numberOf("handled", run.output), handled);
}

}
