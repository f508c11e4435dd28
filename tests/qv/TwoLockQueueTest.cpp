#include <qv/rtlapi/src/TwoLockQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>

#include <qv/rtlapi/RX_Closure_.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/Reference.hpp>

#include "Threads.hpp"

namespace {

using qv::TwoLockQueue;
using qvtest::Caller;

class TwoLockQueueTest : public testing::Test
{
protected:
    static constexpr unsigned int CAPACITY = 3;

    // The destructor of a mutex may throw.
    TwoLockQueueTest() = default;
    ~TwoLockQueueTest() noexcept override = default;

    static RX_Closure* make()
    {
        return new RX_Closure_<void (*)()>([] {});
    }

    const qv::Reference<RX_Closure> first{make()};
    const qv::Reference<RX_Closure> second{make()};
    const qv::Reference<RX_Closure> third{make()};
    RX_Mutex mutex;
    TwoLockQueue queue{mutex, CAPACITY};
};

TEST_F(TwoLockQueueTest, IsEmptyAtFirst)
{
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_TRUE(queue.hasCapacity());
    EXPECT_EQ(queue.popConsumerSide(), nullptr);
    EXPECT_EQ(queue.pop(), nullptr);
}

TEST_F(TwoLockQueueTest, PopReturnsTheOldestFirst)
{
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_EQ(queue.pop(), first.get());
    queue.push(third.get());
    EXPECT_EQ(queue.pop(), second.get());
    EXPECT_EQ(queue.pop(), third.get());
    EXPECT_EQ(queue.pop(), nullptr);
}

TEST_F(TwoLockQueueTest, ConsumerSideHasTheClosuresThatWerePushedBeforeTheLastSwap)
{
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_EQ(queue.popConsumerSide(), nullptr);
    EXPECT_EQ(queue.pop(), first.get());
    queue.push(third.get());
    EXPECT_EQ(queue.popConsumerSide(), second.get());
    EXPECT_EQ(queue.popConsumerSide(), nullptr);
    EXPECT_EQ(queue.pop(), third.get());
}

TEST_F(TwoLockQueueTest, SizeCountsBothSides)
{
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(queue.pop(), first.get());
    EXPECT_EQ(queue.size(), 1U);
    queue.push(third.get());
    EXPECT_EQ(queue.size(), 2U);
    EXPECT_EQ(queue.popConsumerSide(), second.get());
    EXPECT_EQ(queue.size(), 1U);
}

TEST_F(TwoLockQueueTest, HasCapacityUnlessBothSidesTogetherAreFull)
{
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_TRUE(queue.hasCapacity());
    queue.push(third.get());
    EXPECT_FALSE(queue.hasCapacity());
    EXPECT_EQ(queue.pop(), first.get());
    EXPECT_TRUE(queue.hasCapacity());
    queue.push(first.get());
    EXPECT_FALSE(queue.hasCapacity());
    // From the consumer side alone, too.
    EXPECT_EQ(queue.popConsumerSide(), second.get());
    EXPECT_TRUE(queue.hasCapacity());
}

TEST_F(TwoLockQueueTest, PushIgnoresTheCapacity)
{
    for (unsigned int i = 0; i <= CAPACITY; ++i) {
        queue.push(first.get());
    }
    EXPECT_EQ(queue.size(), 4U);
    EXPECT_FALSE(queue.hasCapacity());
}

TEST_F(TwoLockQueueTest, ConsumersTakeBothLocksWhileAProducerIsBlocked)
{
    queue.push(first.get());
    queue.push(second.get());
    queue.push(third.get());
    EXPECT_EQ(queue.pop(), first.get());
    queue.addBlockedPut();
    {
        const TwoLockQueue::BlockedPut blocked(queue);
        EXPECT_EQ(queue.popConsumerSide(), nullptr);
        EXPECT_EQ(queue.pop(), second.get());
    }
    EXPECT_EQ(queue.popConsumerSide(), third.get());
}

TEST_F(TwoLockQueueTest, ConsumersTakeBothLocksIfTheyMustCheckTheState)
{
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_EQ(queue.pop(), first.get());
    queue.setMustCheckState(true);
    EXPECT_EQ(queue.popConsumerSide(), nullptr);
    queue.setMustCheckState(false);
    EXPECT_EQ(queue.popConsumerSide(), second.get());
}

/** Blocks as a producer until there is capacity. */
class Blocked
{
public:
    Blocked(TwoLockQueue& queue, const RX_Mutex& mutex)
        : _caller([&queue, &mutex] {
              {
                  const RX_Locked_ consumer(queue.consumerMutex());
                  const RX_Locked_ locked(mutex);
                  queue.addBlockedPut();
              }
              const RX_Locked_ locked(mutex);
              const TwoLockQueue::BlockedPut blocked(queue);
              while (!queue.hasCapacity()) {
                  blocked.wait();
              }
          })
    {
    }

    Caller& operator*()
    {
        return _caller;
    }

private:
    Caller _caller;
};

TEST_F(TwoLockQueueTest, PopWakesABlockedProducer)
{
    for (unsigned int i = 0; i < CAPACITY; ++i) {
        queue.push(first.get());
    }
    Blocked blocked(queue, mutex);
    EXPECT_TRUE((*blocked).awaitAsleep());
    {
        const RX_Locked_ consumer(queue.consumerMutex());
        const RX_Locked_ locked(mutex);
        EXPECT_EQ(queue.pop(), first.get());
    }
    (*blocked).join();
    EXPECT_EQ(queue.popConsumerSide(), first.get()) << "no producer is blocked any more";
}

TEST_F(TwoLockQueueTest, DrainMovesTheClosuresOfBothSides)
{
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_EQ(queue.pop(), first.get());
    queue.push(third.get());
    TwoLockQueue::DrainedClosures drained;
    queue.drain(drained);
    EXPECT_EQ(drained.older, TwoLockQueue::Closures{second.get()});
    EXPECT_EQ(drained.newer, TwoLockQueue::Closures{third.get()});
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(queue.pop(), nullptr);
}

TEST_F(TwoLockQueueTest, DrainedQueueHasItsWholeCapacity)
{
    queue.push(first.get());
    queue.push(second.get());
    queue.push(third.get());
    EXPECT_EQ(queue.pop(), first.get());
    TwoLockQueue::DrainedClosures drained;
    queue.drain(drained);
    queue.push(first.get());
    queue.push(second.get());
    EXPECT_TRUE(queue.hasCapacity());
    queue.push(third.get());
    EXPECT_FALSE(queue.hasCapacity());
}

TEST_F(TwoLockQueueTest, DrainedQueueWakesBlockedProducersOnRequest)
{
    for (unsigned int i = 0; i < CAPACITY; ++i) {
        queue.push(first.get());
    }
    Blocked one(queue, mutex);
    Blocked other(queue, mutex);
    EXPECT_TRUE((*one).awaitAsleep());
    EXPECT_TRUE((*other).awaitAsleep());
    TwoLockQueue::DrainedClosures drained;
    {
        const RX_Locked_ consumer(queue.consumerMutex());
        const RX_Locked_ locked(mutex);
        queue.drain(drained);
        queue.wakeBlockedPuts();
    }
    (*one).join();
    (*other).join();
    EXPECT_EQ(drained.newer.size(), 3U);
}

}
