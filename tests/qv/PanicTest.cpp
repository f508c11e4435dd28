#include <qv/pmx/panic.h>

#include <gtest/gtest.h>

#include <csignal>
#include <limits>

namespace {

class PanicDeathTest : public testing::Test
{};

TEST_F(PanicDeathTest, WritesTheSourcePositionAndAborts)
{
    EXPECT_EXIT(qv_si_panic_internal("sys/internal/src/ThreadState", 90), testing::KilledBySignal(SIGABRT),
                "^qv: fatal error at sys/internal/src/ThreadState:90\n$");
}

TEST_F(PanicDeathTest, AnyLineNumberIsFormatted)
{
    EXPECT_EXIT(qv_si_panic_internal("x", 0), testing::KilledBySignal(SIGABRT), "^qv: fatal error at x:0\n$");
    EXPECT_EXIT(qv_si_panic_internal("x", std::numeric_limits<int>::max()), testing::KilledBySignal(SIGABRT),
                "^qv: fatal error at x:2147483647\n$");
    EXPECT_EXIT(qv_si_panic_internal("x", std::numeric_limits<int>::min()), testing::KilledBySignal(SIGABRT),
                "^qv: fatal error at x:-2147483648\n$");
}

TEST_F(PanicDeathTest, NullPathIsAnUnknownSource)
{
    EXPECT_EXIT(qv_si_panic_internal(nullptr, 7), testing::KilledBySignal(SIGABRT),
                "^qv: fatal error at unknown source:7\n$");
}

}
