#include <qv/rtlapi/src/IdleWorkers.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <pthread.h>

#include <qv/rtlapi/RX_Locked_.hpp>

#include "Threads.hpp"

namespace {

using qv::IdleWorkers;
using qvtest::Caller;

class IdleWorkersTest : public testing::Test
{
protected:
    // The destructor of a mutex may throw.
    IdleWorkersTest() = default;
    ~IdleWorkersTest() noexcept override = default;

    /** Wakes a worker for one of `pending` closures. */
    IdleWorkers::Waiter* wakeFor(si_uint32_t pending)
    {
        return workers.wakeFor(pending).waiter;
    }

    RX_Mutex mutex;
    IdleWorkers workers{mutex};
    IdleWorkers::Waiter& first = workers.addWaiter();
    IdleWorkers::Waiter& second = workers.addWaiter();
    IdleWorkers::Waiter& third = workers.addWaiter();
};

TEST_F(IdleWorkersTest, NobodyIsWokenIfNoWorkerIsIdle)
{
    EXPECT_FALSE(workers.hasAny());
    EXPECT_EQ(workers.count(), 0U);
    EXPECT_EQ(wakeFor(1), nullptr);
    workers.wakeAll();
}

TEST_F(IdleWorkersTest, SpinningWorkerIsWokenBeforeParkedOnes)
{
    workers.push(first);
    workers.push(second);
    const IdleWorkers::Wakeup wakeup = workers.wakeFor(1);
    EXPECT_EQ(wakeup.waiter, &first);
    EXPECT_TRUE(wakeup.mustRespond);
    EXPECT_TRUE(workers.hasAny());
    EXPECT_EQ(workers.count(), 2U);
    workers.wait(first);
    EXPECT_EQ(workers.count(), 1U);
    EXPECT_TRUE(workers.deliver(wakeup));
}

TEST_F(IdleWorkersTest, SpinningWorkerNeedNotRespondIfNoWorkerIsParked)
{
    workers.push(first);
    EXPECT_TRUE(workers.hasAny());
    EXPECT_FALSE(workers.wakeFor(1));
    // It has been woken all the same.
    EXPECT_FALSE(workers.hasAny());
    workers.wait(first);
    EXPECT_EQ(workers.count(), 0U);
}

TEST_F(IdleWorkersTest, WorkerThatWasParkedLastIsWokenFirst)
{
    workers.push(first);
    workers.push(second);
    workers.push(third);
    EXPECT_EQ(wakeFor(1), &first);
    const IdleWorkers::Wakeup wakeup = workers.wakeFor(1);
    EXPECT_EQ(wakeup.waiter, &third);
    EXPECT_FALSE(wakeup.mustRespond);
    EXPECT_TRUE(workers.deliver(wakeup));
    EXPECT_EQ(wakeFor(2), &second);
    EXPECT_FALSE(workers.hasAny());
    EXPECT_EQ(wakeFor(3), nullptr);
}

TEST_F(IdleWorkersTest, NobodyIsWokenForClosuresThatWokenWorkersWillRun)
{
    workers.push(first);
    workers.push(second);
    workers.push(third);
    EXPECT_EQ(wakeFor(1), &first);
    EXPECT_EQ(wakeFor(1), &third);
    EXPECT_EQ(wakeFor(1), nullptr);
    // It runs, and may be busy from now on.
    workers.wait(third);
    EXPECT_EQ(wakeFor(1), &second);
}

TEST_F(IdleWorkersTest, SpinningWorkerThatDoesNotRespondIsReplacedByAParkedOne)
{
    workers.push(first);
    workers.push(second);
    const IdleWorkers::Wakeup wakeup = workers.wakeFor(1);
    EXPECT_EQ(wakeup.waiter, &first);
    // The first worker does not run.
    EXPECT_FALSE(workers.deliver(wakeup));
    const IdleWorkers::Wakeup replacement = workers.wakeFor(1);
    EXPECT_EQ(replacement.waiter, &second);
    EXPECT_TRUE(workers.deliver(replacement));
    workers.wait(second);
    EXPECT_EQ(workers.count(), 1U);
    workers.wait(first);
    EXPECT_EQ(workers.count(), 0U);
}

TEST_F(IdleWorkersTest, SpinningWorkerRespondsWithoutTheLock)
{
    workers.push(first);
    workers.push(second);
    mutex.lock();
    const IdleWorkers::Wakeup wakeup = workers.wakeFor(1);
    Caller worker([&] { workers.wait(first); });
    EXPECT_TRUE(worker.awaitAsleep()) << "the lock is held";
    EXPECT_TRUE(workers.deliver(wakeup));
    mutex.unlock();
    worker.join();
    EXPECT_EQ(workers.count(), 1U);
}

TEST_F(IdleWorkersTest, WorkerThatIsNotIdleAnyMoreCountsAsHavingResponded)
{
    workers.push(first);
    workers.push(second);
    mutex.lock();
    Caller worker([&] { workers.wait(first); });
    EXPECT_TRUE(worker.awaitAsleep()) << "it does not spin any more, and the lock is held";
    const IdleWorkers::Wakeup wakeup = workers.wakeFor(1);
    EXPECT_EQ(wakeup.waiter, &first);
    EXPECT_FALSE(workers.deliver(wakeup));
    mutex.unlock();
    worker.join();
    EXPECT_TRUE(workers.deliver(wakeup));
}

TEST_F(IdleWorkersTest, WorkersThatCameTooLateAreNotCounted)
{
    workers.push(first);
    workers.push(second);
    EXPECT_EQ(wakeFor(1), &first);
    EXPECT_EQ(wakeFor(1), &second);
    // The second worker does not run yet, but the third one finds the queue empty.
    workers.push(third);
    EXPECT_TRUE(workers.hasAny());
    wakeFor(1);
    EXPECT_FALSE(workers.hasAny());
    workers.wait(third);
    workers.wait(second);
    workers.wait(first);
    EXPECT_EQ(workers.count(), 0U);
    // Nor do they count when they leave.
    workers.push(first);
    workers.push(second);
    EXPECT_EQ(wakeFor(1), &first);
    EXPECT_EQ(wakeFor(1), &second);
}

TEST_F(IdleWorkersTest, WakeAllWakesSpinningAndParkedWorkers)
{
    Caller parked([&] {
        {
            const RX_Locked_ locked(mutex);
            workers.push(first);
        }
        workers.wait(first);
    });
    EXPECT_TRUE(parked.awaitAsleep());
    {
        const RX_Locked_ locked(mutex);
        workers.push(second);
        workers.push(third);
        workers.wakeAll();
        EXPECT_FALSE(workers.hasAny());
    }
    workers.wait(second);
    workers.wait(third);
    parked.join();
    EXPECT_EQ(workers.count(), 0U);
}

TEST_F(IdleWorkersTest, DeliverySignalsTheParkedWorker)
{
    Caller parked([&] {
        {
            const RX_Locked_ locked(mutex);
            workers.push(first);
        }
        workers.wait(first);
    });
    EXPECT_TRUE(parked.awaitAsleep());
    IdleWorkers::Wakeup wakeup;
    {
        const RX_Locked_ locked(mutex);
        wakeup = workers.wakeFor(1);
        EXPECT_EQ(wakeup.waiter, &first);
        EXPECT_FALSE(wakeup.mustRespond);
    }
    EXPECT_TRUE(workers.deliver(wakeup));
    parked.join();
    EXPECT_EQ(workers.count(), 0U);
}

/** A worker that parks between two others, and its thread. */
struct Parked
{
    static void* run(void* self)
    {
        auto& parked = *static_cast<Parked*>(self);
        {
            const RX_Locked_ locked(parked.mutex);
            parked.workers.push(parked.waiter);
        }
        parked.isIdle = true;
        parked.workers.wait(parked.waiter);
        return nullptr;
    }

    const RX_Mutex& mutex;
    IdleWorkers& workers;
    IdleWorkers::Waiter& waiter;
    std::atomic<bool> isIdle{false};
};

TEST_F(IdleWorkersTest, WorkerIsNotIdleAnyMoreIfItsThreadIsCancelled)
{
    workers.push(first);
    workers.push(second);
    Parked parked{mutex, workers, third};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, &Parked::run, &parked), 0);
    while (!parked.isIdle) {
        std::this_thread::yield();
    }
    EXPECT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(workers.count(), 2U);
    EXPECT_EQ(wakeFor(1), &first);
    EXPECT_EQ(wakeFor(1), &second);
    EXPECT_FALSE(workers.hasAny());
}

TEST_F(IdleWorkersTest, WaitNodeOfAWorkerThatEndedIsReused)
{
    workers.removeWaiter(second);
    workers.removeWaiter(first);
    EXPECT_EQ(&workers.addWaiter(), &first);
    EXPECT_EQ(&workers.addWaiter(), &second);
    EXPECT_NE(&workers.addWaiter(), &third);
}

}
