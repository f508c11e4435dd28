#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ServerQueueFixture.hpp"
#include "StoppedSpinner.hpp"

namespace {

using qvtest::Caller;
using qvtest::Gate;

/** No worker is parked while a closure is pending: each of these tests hangs if a wake-up is lost. */
class ServerQueueWake : public qvtest::ServerQueueFixture
{
protected:
    static constexpr int ROUNDS = 300;
};

TEST_F(ServerQueueWake, AllWorkersAreWokenForAsManyClosures)
{
    make(10, 3);
    for (int round = 0; round < ROUNDS; ++round) {
        // Each of the three waits for the two others, so that all workers are needed at the same time.
        std::atomic<int> met{0};
        for (int i = 0; i < 3; ++i) {
            queue->put(closure([&] {
                ++met;
                while (met != 3) {
                    std::this_thread::yield();
                }
            }));
        }
        recorder->waitForQuiet();
        EXPECT_EQ(met, 3);
    }
}

TEST_F(ServerQueueWake, ClosureDoesNotWaitForABlockedOne)
{
    make(10, 2);
    for (int round = 0; round < ROUNDS; ++round) {
        Gate gate;
        queue->put(closure([&] { gate.pass(); }));
        queue->put(closure());
        queue->put(closure([&] { gate.open(); }));
        recorder->waitForQuiet();
    }
}

TEST_F(ServerQueueWake, ParkedWorkerIsWokenForEachClosure)
{
    make(1, 1);
    for (int round = 0; round < ROUNDS; ++round) {
        queue->put(closure());
        recorder->waitForQuiet();
    }
    EXPECT_EQ(queue->size(), 0U);
}

TEST_F(ServerQueueWake, ManyBlockedPutsAllProceed)
{
    for (const unsigned int capacity : {0U, 1U, 2U}) {
        make(capacity, 2);
        std::atomic<int> calls{0};
        {
            std::vector<std::unique_ptr<Caller>> putters;
            for (int i = 0; i < 4; ++i) {
                putters.push_back(std::make_unique<Caller>([&] {
                    for (int round = 0; round < ROUNDS; ++round) {
                        queue->put(closure([&] { ++calls; }));
                    }
                }));
            }
            for (const auto& putter : putters) {
                putter->join();
            }
        }
        recorder->waitForQuiet();
        EXPECT_EQ(calls, 4 * ROUNDS) << capacity;
        endQueue();
    }
}

TEST_F(ServerQueueWake, RemovedWorkersConsumeNoWakeUps)
{
    for (int round = 0; round < ROUNDS / 3; ++round) {
        make(10, 3);
        std::atomic<int> calls{0};
        Caller remover([&] {
            queue->removeThreads(1);
            queue->removeThreads(1);
        });
        for (int i = 0; i < 20; ++i) {
            queue->put(closure([&] { ++calls; }));
        }
        recorder->waitForQuiet();
        remover.join();
        EXPECT_EQ(calls, 20);
        awaitThreads(1);
        endQueue();
    }
}

TEST_F(ServerQueueWake, RunsTheOldestFirstAcrossBothSides)
{
    make(100, 1);
    Gate gate;
    occupy(gate);
    std::vector<int> order;
    for (int i = 0; i < 10; ++i) {
        queue->put(closure([&, i] {
            order.push_back(i);
            if (i == 3) {
                queue->put(closure([&] { order.push_back(10); }));
            }
        }));
    }
    EXPECT_EQ(queue->size(), 10U);
    gate.open();
    recorder->waitForQuiet();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(ServerQueueWake, ClosuresOnTheConsumerSideArePending)
{
    make(4, 1);
    Gate first;
    Gate second;
    occupy(first);
    Gate isSecond;
    queue->put(closure([&] {
        isSecond.open();
        second.pass();
    }));
    std::atomic<int> calls{0};
    for (int i = 0; i < 3; ++i) {
        queue->put(closure([&] { ++calls; }));
    }
    first.open();
    isSecond.pass();
    // Three are on the consumer side now, and still count as pending.
    EXPECT_EQ(queue->size(), 3U);
    queue->put(closure([&] { ++calls; }));
    RX_Closure* const refused = closure();
    EXPECT_EQ(queue->tryPut(refused), 0);
    refused->detach();
    EXPECT_EQ(queue->runPending(), 1);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(queue->size(), 3U);
    queue->flush();
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    second.open();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
}

TEST_F(ServerQueueWake, IdleWorkerRunsTheClosureIfTheSpinningOneIsPreempted)
{
#ifdef DALNIM_SANITIZED
    GTEST_SKIP() << "a sanitizer may delay the handler of the signal that stops the worker";
#else
    make(10, 2);
    qvtest::StoppedSpinner spinner;
    long nanoseconds = 0;
    do {
        // Another moment after the end of the closure in each round, until the worker spins then.
        nanoseconds = nanoseconds % 10000 + 100;
        queue->put(closure([&] { spinner.interruptAfter(nanoseconds); }));
        recorder->waitForQuiet();
    } while (!spinner.hasStopped());
    Gate isRun;
    queue->put(closure([&] { isRun.open(); }));
    EXPECT_TRUE(isRun.passWithin(std::chrono::seconds(10)));
    spinner.release();
    recorder->waitForQuiet();
#endif
}

}
