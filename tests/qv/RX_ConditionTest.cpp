#include <qv/rtlapi/RX_Condition.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <type_traits>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include "Threads.hpp"

namespace {

using qvtest::Caller;

static_assert(!std::is_copy_constructible_v<RX_Condition> && !std::is_copy_assignable_v<RX_Condition>);
static_assert(!std::is_nothrow_destructible_v<RX_Condition> && std::has_virtual_destructor_v<RX_Condition>);

class Condition : public testing::Test
{
protected:
    Condition() = default;
    ~Condition() noexcept override = default;

    RX_Mutex mutex;
    const RX_Condition condition{mutex};
    bool isReady = false;
};

TEST_F(Condition, SignalWakesAWaitingThread)
{
    Caller waiter([this] {
        const RX_Locked_ locked(mutex);
        while (!isReady) {
            condition.wait();
        }
        // The mutex is held again.
        EXPECT_EQ(mutex.tryLock(), 0);
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    const RX_Locked_ locked(mutex);
    isReady = true;
    condition.signal();
}

TEST_F(Condition, SignalWakesOneAndBroadcastAll)
{
    std::atomic<int> through{0};
    int tickets = 0;
    const auto wait = [&] {
        const RX_Locked_ locked(mutex);
        while (tickets == 0) {
            condition.wait();
        }
        --tickets;
        ++through;
    };
    Caller first(wait);
    Caller second(wait);
    Caller third(wait);
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    EXPECT_TRUE(third.awaitAsleep());
    {
        const RX_Locked_ locked(mutex);
        tickets = 1;
        condition.signal();
    }
    while (through != 1) {
        std::this_thread::yield();
    }
    {
        const RX_Locked_ locked(mutex);
        EXPECT_EQ(tickets, 0);
        tickets = 2;
        condition.broadcast();
    }
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(through, 3);
}

TEST_F(Condition, CanBeConstructedFromAPointer)
{
    const RX_Condition other(&mutex);
    const RX_Locked_ locked(mutex);
    EXPECT_EQ(other.timedWait(RX_RelTime(0, 0)), 0);
}

TEST_F(Condition, TimedWaitReturns0AtTheTimeOut)
{
    const RX_Locked_ locked(mutex);
    timespec before;
    timespec after;
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(condition.timedWait(RX_RelTime(0, 20000000)), 0);
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1000000000 + after.tv_nsec - before.tv_nsec, 20000000);
    EXPECT_EQ(condition.timedWait(RX_AbsTime(RX_RelTime(0, 20000000))), 0);
    EXPECT_EQ(mutex.tryLock(), 0);
}

TEST_F(Condition, TimedWaitReturnsImmediatelyIfTheTimeIsPast)
{
    const RX_Locked_ locked(mutex);
    EXPECT_EQ(condition.timedWait(RX_AbsTime(RX_RelTime(-1, 0))), 0);
    EXPECT_EQ(condition.timedWait(RX_AbsTime(RX_RelTime(std::numeric_limits<int>::min(), 0))), 0);
    EXPECT_EQ(condition.timedWait(RX_RelTime(0, -1)), 0);
    EXPECT_EQ(condition.timedWait(RX_RelTime(std::numeric_limits<int>::min(), 0)), 0);
    EXPECT_EQ(condition.timedWait(RX_RelTime(0, 0)), 0);
    EXPECT_EQ(condition.timedWait(RX_Time(0, 0)), 0);
}

void expectWokenWithin(RX_Mutex& mutex, const RX_Condition& condition, const RX_Time& time)
{
    bool isReady = false;
    qv_bool_t result = -1;
    Caller waiter([&] {
        const RX_Locked_ locked(mutex);
        result = 1;
        while (!isReady && result == 1) {
            result = condition.timedWait(time);
        }
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    {
        const RX_Locked_ locked(mutex);
        isReady = true;
        condition.signal();
    }
    waiter.join();
    EXPECT_EQ(result, 1);
}

TEST_F(Condition, TimedWaitReturns1WhenWoken)
{
    expectWokenWithin(mutex, condition, RX_RelTime(3600, 0));
    expectWokenWithin(mutex, condition, RX_AbsTime(RX_RelTime(3600, 0)));
}

TEST_F(Condition, TimedWaitSupportsTheLongestTimes)
{
    expectWokenWithin(mutex, condition, RX_RelTime(4294967, 295000000));
    expectWokenWithin(mutex, condition, RX_RelTime(std::numeric_limits<int>::max(), 999999999));
    expectWokenWithin(mutex, condition, RX_AbsTime(RX_RelTime(std::numeric_limits<int>::max(), 999999999)));
    expectWokenWithin(mutex, condition, RX_Time(std::numeric_limits<int>::max(), 999999999));
}

TEST_F(Condition, WaitThrowsIfTheMutexIsNotHeld)
{
    EXPECT_THROW(condition.wait(), RX_Exception);
    try {
        condition.timedWait(RX_RelTime(1, 0));
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(exception.getCode(), 1);
    }
}

TEST_F(Condition, SignalWithoutAWaiterHasNoEffect)
{
    condition.signal();
    condition.broadcast();
    const RX_Locked_ locked(mutex);
    EXPECT_EQ(condition.timedWait(RX_RelTime(0, 1000000)), 0);
}

}
