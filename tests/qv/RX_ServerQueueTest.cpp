#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <type_traits>
#include <vector>

#include <unistd.h>

#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>

#include "ServerQueueFixture.hpp"

namespace {

using qvtest::Caller;
using qvtest::Gate;

static_assert(std::is_base_of_v<RX_Lockable, RX_ServerQueue>);

class ServerQueue : public qvtest::ServerQueueFixture
{};

TEST_F(ServerQueue, IsOpenAndEmptyAtFirst)
{
    make(3, 0);
    EXPECT_EQ(queue->isClosed(), 0);
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(queue->threadCount(), 0U);
    const RX_Locked_ locked(*queue);
    EXPECT_EQ(queue->size_nolock(), 0U);
}

TEST_F(ServerQueue, PutWithoutThreadsLeavesClosuresPending)
{
    make(2, 0);
    queue->put(closure());
    queue->put(closure());
    EXPECT_EQ(queue->size(), 2U);
    EXPECT_EQ(recorder->getBacklog(), 2U);
    EXPECT_EQ(alive, 2);
}

TEST_F(ServerQueue, RunsAndReleasesEachClosure)
{
    make(10, 2);
    std::atomic<int> calls{0};
    for (int i = 0; i < 100; ++i) {
        queue->put(closure([&] { ++calls; }));
    }
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 100);
    // Released before the recorder was decremented.
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(recorder->getBacklog(), 0U);
    EXPECT_EQ(queue->threadCount(), 2U);
}

TEST_F(ServerQueue, RunsTheOldestFirst)
{
    make(10, 0);
    std::vector<int> order;
    for (int i = 0; i < 5; ++i) {
        queue->put(closure([&order, i] { order.push_back(i); }));
    }
    queue->addThreads(1);
    recorder->waitForQuiet();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(ServerQueue, RunsClosuresOnItsThreads)
{
    make(10, 1);
    pid_t tid = 0;
    queue->put(closure([&] { tid = gettid(); }));
    recorder->waitForQuiet();
    EXPECT_NE(tid, 0);
    EXPECT_NE(tid, gettid());
}

TEST_F(ServerQueue, HoldsNoLockWhileAClosureRuns)
{
    make(10, 1);
    unsigned int backlog = 0;
    unsigned int size = 9;
    RX_Closure* self = nullptr;
    qv_bool_t couldLock = 0;
    self = closure([&] {
        backlog = recorder->getBacklog();
        size = queue->size();
        couldLock = self->tryLock();
        if (couldLock) {
            self->unlock();
        }
    });
    queue->put(self);
    recorder->waitForQuiet();
    EXPECT_EQ(backlog, 1U);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(couldLock, 1);
}

TEST_F(ServerQueue, CountsPendingAndRunningClosures)
{
    make(10, 1);
    Gate gate;
    occupy(gate);
    queue->put(closure());
    queue->put(closure());
    EXPECT_EQ(recorder->getBacklog(), 3U);
    EXPECT_EQ(queue->size(), 2U);
    gate.open();
    recorder->waitForQuiet();
}

TEST_F(ServerQueue, PutWaitsForRoom)
{
    make(1, 1);
    Gate gate;
    occupy(gate);
    queue->put(closure());
    Caller putter([&] { queue->put(closure()); });
    EXPECT_TRUE(putter.awaitAsleep());
    EXPECT_EQ(queue->size(), 1U);
    EXPECT_EQ(recorder->getBacklog(), 2U);
    gate.open();
    putter.join();
    recorder->waitForQuiet();
}

TEST_F(ServerQueue, PutProbeIgnoresTheCapacity)
{
    make(1, 0);
    queue->put(closure());
    queue->putProbe(closure());
    queue->putProbe(closure());
    EXPECT_EQ(queue->size(), 3U);
    EXPECT_EQ(recorder->getBacklog(), 3U);
}

TEST_F(ServerQueue, PutProbeWorksAfterFlush)
{
    make(5, 1);
    queue->flush();
    RX_Closure0S* const probe = new RX_Closure0S([] {});
    probe->attach();
    queue->putProbe(probe);
    probe->waitForCompletion();
    probe->detach();
    recorder->waitForQuiet();
}

TEST_F(ServerQueue, TryPutAppendsOnlyIfTheQueueIsNotFull)
{
    make(1, 0);
    EXPECT_EQ(queue->tryPut(closure()), 1);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    RX_Closure* const refused = closure();
    EXPECT_EQ(queue->tryPut(refused), 0);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    EXPECT_EQ(queue->size(), 1U);
    queue->close();
    EXPECT_EQ(queue->tryPut(refused), 0);
    EXPECT_EQ(alive, 1);
    refused->detach();
}

TEST_F(ServerQueue, RunPendingRunsAClosureOnTheCallingThread)
{
    make(5, 0);
    pid_t tid = 0;
    unsigned int backlog = 0;
    queue->put(closure([&] {
        tid = gettid();
        backlog = recorder->getBacklog();
    }));
    EXPECT_EQ(queue->runPending(), 1);
    EXPECT_EQ(tid, gettid());
    EXPECT_EQ(backlog, 1U);
    EXPECT_EQ(recorder->getBacklog(), 0U);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(queue->runPending(), 0);
}

TEST_F(ServerQueue, RunPendingPropagatesTheExceptionOfTheClosure)
{
    make(5, 0);
    queue->put(closure([] { throw 5; }));
    EXPECT_THROW(queue->runPending(), int);
    EXPECT_EQ(recorder->getBacklog(), 0U);
    EXPECT_EQ(alive, 0);
}

TEST_F(ServerQueue, RunPendingUnblocksPut)
{
    make(1, 0);
    queue->put(closure());
    Caller putter([&] { queue->put(closure()); });
    EXPECT_TRUE(putter.awaitAsleep());
    EXPECT_EQ(queue->runPending(), 1);
    putter.join();
    EXPECT_EQ(queue->size(), 1U);
}

TEST_F(ServerQueue, FlushDiscardsPendingClosures)
{
    make(5, 1);
    Gate gate;
    occupy(gate);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    queue->put(closure([&] { ++calls; }));
    queue->flush();
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(queue->isClosed(), 0);
    queue->put(closure([&] { ++calls; }));
    gate.open();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
}

TEST_F(ServerQueue, FlushUnblocksPut)
{
    make(1, 0);
    queue->put(closure());
    Caller putter([&] { queue->put(closure()); });
    EXPECT_TRUE(putter.awaitAsleep());
    queue->flush();
    putter.join();
    EXPECT_EQ(queue->size(), 1U);
    EXPECT_EQ(recorder->getBacklog(), 1U);
}

TEST_F(ServerQueue, CloseDiscardsPendingClosuresAndEndsTheWorkers)
{
    make(5, 2);
    Gate gate;
    occupy(gate);
    occupy(gate);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    queue->close();
    EXPECT_NE(queue->isClosed(), 0);
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(recorder->getBacklog(), 2U);
    EXPECT_EQ(alive, 2);
    EXPECT_EQ(queue->threadCount(), 2U);
    gate.open();
    recorder->waitForQuiet();
    awaitThreads(0);
    EXPECT_EQ(calls, 0);
}

TEST_F(ServerQueue, CloseEndsIdleWorkers)
{
    make(5, 3);
    queue->close();
    awaitThreads(0);
    queue->close();
    EXPECT_NE(queue->isClosed(), 0);
}

TEST_F(ServerQueue, PutAfterCloseDiscardsTheClosure)
{
    make(5, 1);
    queue->close();
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    EXPECT_EQ(alive, 0);
    queue->putProbe(closure([&] { ++calls; }));
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(recorder->getBacklog(), 0U);
    awaitThreads(0);
    EXPECT_EQ(calls, 0);
}

TEST_F(ServerQueue, CloseUnblocksPut)
{
    make(1, 0);
    queue->put(closure());
    Caller first([&] { queue->put(closure()); });
    Caller second([&] { queue->put(closure()); });
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    queue->close();
    first.join();
    second.join();
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(recorder->getBacklog(), 0U);
}

TEST_F(ServerQueue, MayBeClosedByAClosure)
{
    make(5, 1);
    queue->put(closure([&] { queue->close(); }));
    awaitThreads(0);
    EXPECT_NE(queue->isClosed(), 0);
}

TEST_F(ServerQueue, ClosuresMayPutFurtherOnes)
{
    make(5, 1);
    std::atomic<int> calls{0};
    queue->put(closure([&] {
        ++calls;
        queue->put(closure([&] { ++calls; }));
    }));
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 2);
}

TEST_F(ServerQueue, WithCapacity0PutHandsOverToAnIdleWorker)
{
    make(0, 2);
    std::atomic<int> calls{0};
    for (int i = 0; i < 50; ++i) {
        queue->put(closure([&] { ++calls; }));
    }
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 50);
}

TEST_F(ServerQueue, WithCapacity0PutWaitsForAnIdleWorker)
{
    make(0, 1);
    Gate gate;
    occupy(gate);
    RX_Closure* const refused = closure();
    EXPECT_EQ(queue->tryPut(refused), 0);
    refused->detach();
    Caller putter([&] { queue->put(closure()); });
    EXPECT_TRUE(putter.awaitAsleep());
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    gate.open();
    putter.join();
    recorder->waitForQuiet();
}

TEST_F(ServerQueue, WithCapacity0PutWaitsForAThread)
{
    make(0, 0);
    std::atomic<int> calls{0};
    Caller putter([&] { queue->put(closure([&] { ++calls; })); });
    EXPECT_TRUE(putter.awaitAsleep());
    queue->addThreads(1);
    putter.join();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
}

TEST_F(ServerQueue, WithCapacity0PutProbeAppends)
{
    make(0, 1);
    Gate gate;
    occupy(gate);
    queue->putProbe(closure());
    EXPECT_EQ(queue->size(), 1U);
    gate.open();
    recorder->waitForQuiet();
}

}
