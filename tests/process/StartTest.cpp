// Static objects of the library exist before those of a program, also if nothing in the program refers to
// them.

#include "Run.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace processtest;

TEST(ProcessStart, StaticObjectsOfTheProgramUseTheLog)
{
    const Outcome run({PROCESS_START_PROBE});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_THAT(run.records(),
                testing::ElementsAre("static object", testing::StartsWith("Changing logging setting"), "2"));
}

TEST(ProcessStart, TimeZoneIsInitialised)
{
    setenv("TZ", "ABC5", 1);
    const Outcome run({PROCESS_START_PROBE});
    unsetenv("TZ");
    EXPECT_EQ("zone 18000\ntask reporter\n", run.output);
}

TEST(ProcessStart, ReportDescribesTasks)
{
    const Outcome run({PROCESS_START_PROBE});
    EXPECT_THAT(run.output, testing::EndsWith("\ntask reporter\n"));
}

TEST(ProcessStart, RuntimeLayerHasItsMessages)
{
    const Outcome run({PROCESS_MESSAGES_PROBE});
    EXPECT_EQ(0, run.status) << run.errors;
    EXPECT_EQ("Library cannot be loaded\nCondition does not hold\nPath cannot be resolved\n", run.output);
}

}
