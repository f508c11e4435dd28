#include <qv/rtlapi/RX_ActivityRecorder.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <type_traits>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include "Threads.hpp"

namespace {

static_assert(std::is_base_of_v<RX_Monitor, RX_ActivityRecorder>);
static_assert(!std::is_destructible_v<RX_ActivityRecorder>);

class ActivityRecorder : public testing::Test
{
protected:
    void TearDown() override
    {
        recorder->detach();
    }

    RX_ActivityRecorder* const recorder = new RX_ActivityRecorder;
};

TEST_F(ActivityRecorder, BacklogIsIncrementsMinusDecrements)
{
    EXPECT_EQ(recorder->getBacklog(), 0U);
    recorder->inc();
    recorder->inc();
    EXPECT_EQ(recorder->getBacklog(), 2U);
    recorder->dec();
    EXPECT_EQ(recorder->getBacklog(), 1U);
    recorder->dec();
    EXPECT_EQ(recorder->getBacklog(), 0U);
}

TEST_F(ActivityRecorder, WaitForQuietReturnsImmediatelyAtFirst)
{
    recorder->waitForQuiet();
}

TEST_F(ActivityRecorder, WaitForQuietBlocksUntilTheLastDec)
{
    recorder->inc();
    recorder->inc();
    std::atomic<bool> isLast{false};
    const auto wait = [&] {
        recorder->waitForQuiet();
        EXPECT_TRUE(isLast);
    };
    qvtest::Caller first(wait);
    qvtest::Caller second(wait);
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    recorder->dec();
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    isLast = true;
    recorder->dec();
}

TEST_F(ActivityRecorder, LimitedWaitForQuietReturnsOneImmediatelyAtFirst)
{
    EXPECT_EQ(recorder->waitForQuiet(RX_AbsTime(RX_RelTime(0, 0))), 1);
}

TEST_F(ActivityRecorder, LimitedWaitForQuietReturnsZeroAtItsDeadline)
{
    recorder->inc();
    EXPECT_EQ(recorder->waitForQuiet(RX_AbsTime(RX_RelTime(0, 0))), 0);
    EXPECT_EQ(recorder->waitForQuiet(RX_AbsTime(RX_RelTime(0, 20000000))), 0);
    recorder->dec();
    EXPECT_EQ(recorder->waitForQuiet(RX_AbsTime(RX_RelTime(0, 0))), 1);
}

TEST_F(ActivityRecorder, LimitedWaitForQuietReturnsOneAtTheLastDec)
{
    recorder->inc();
    std::atomic<int> result{-1};
    qvtest::Caller waiter([&] { result = recorder->waitForQuiet(RX_AbsTime(RX_RelTime(60, 0))); });
    EXPECT_TRUE(waiter.awaitAsleep());
    recorder->dec();
    waiter.join();
    EXPECT_EQ(result, 1);
}

TEST_F(ActivityRecorder, WaitForQuietIsWokenAfterTheDeadlineOfAnotherThread)
{
    for (int round = 0; round < 200; ++round) {
        recorder->inc();
        qvtest::Caller unlimited([this] { recorder->waitForQuiet(); });
        qvtest::Caller limited([this, round] {
            static_cast<void>(recorder->waitForQuiet(RX_AbsTime(RX_RelTime(0, round * 1000))));
        });
        if (round % 2 == 0) {
            limited.join();
        }
        recorder->dec();
    }
}

TEST_F(ActivityRecorder, DecThrowsIfTheBacklogIsZero)
{
    try {
        recorder->dec();
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(exception.getCode(), 51459);
        EXPECT_STREQ(exception.asString(78).data(), "Condition does not hold: _backlog > 0");
    }
    EXPECT_EQ(recorder->getBacklog(), 0U);
}

TEST_F(ActivityRecorder, ConnectAndDisconnectDoNothing)
{
    recorder->connect(nullptr);
    recorder->disconnect(nullptr);
    EXPECT_EQ(recorder->getBacklog(), 0U);
}

TEST_F(ActivityRecorder, DecAfterIncNeverThrowsDespiteConcurrentCalls)
{
    constexpr int ROUNDS = 5000;
    std::atomic<bool> isOver{false};
    qvtest::Caller waiter([&] {
        while (!isOver) {
            recorder->waitForQuiet();
        }
    });
    {
        const auto count = [this] {
            for (int i = 0; i < ROUNDS; ++i) {
                recorder->inc();
                EXPECT_GE(recorder->getBacklog(), 1U);
                EXPECT_LE(recorder->getBacklog(), 3U);
                EXPECT_NO_THROW(recorder->dec());
            }
        };
        qvtest::Caller first(count);
        qvtest::Caller second(count);
        qvtest::Caller third(count);
    }
    isOver = true;
    EXPECT_EQ(recorder->getBacklog(), 0U);
    recorder->waitForQuiet();
}

}
