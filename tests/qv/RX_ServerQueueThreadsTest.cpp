#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <typeinfo>
#include <vector>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_Closure_.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/src/ServerQueueAccess.hpp>

#include "ServerQueueFixture.hpp"

namespace {

using qvtest::Caller;
using qvtest::Gate;

class ServerQueueThreads : public qvtest::ServerQueueFixture
{};

TEST_F(ServerQueueThreads, AddsThreads)
{
    make(5, 1);
    queue->addThreads(0);
    EXPECT_EQ(queue->threadCount(), 1U);
    queue->addThreads(2);
    EXPECT_EQ(queue->threadCount(), 3U);
    // All three run at the same time.
    Gate gate;
    occupy(gate);
    occupy(gate);
    occupy(gate);
    gate.open();
    recorder->waitForQuiet();
}

TEST_F(ServerQueueThreads, StartsNoThreadsOnceClosed)
{
    make(5, 0);
    queue->close();
    queue->addThreads(2);
    EXPECT_EQ(queue->threadCount(), 0U);
}

TEST_F(ServerQueueThreads, RemovesIdleThreads)
{
    make(5, 3);
    queue->removeThreads(2);
    awaitThreads(1);
    queue->removeThreads(0);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(queue->threadCount(), 1U);
}

TEST_F(ServerQueueThreads, RemovesNoMoreThreadsThanThereAre)
{
    make(5, 2);
    queue->removeThreads(4294967295U);
    queue->removeThreads(1);
    awaitThreads(0);
    queue->addThreads(1);
    EXPECT_EQ(queue->threadCount(), 1U);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
}

TEST_F(ServerQueueThreads, RemovedWorkerEndsAfterItsRunningClosure)
{
    make(5, 2);
    Gate first;
    Gate second;
    occupy(first);
    occupy(second);
    queue->removeThreads(1);
    EXPECT_EQ(queue->threadCount(), 2U);
    // The other worker remains, and will run the pending closure.
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    first.open();
    awaitThreads(1);
    EXPECT_EQ(calls, 0);
    second.open();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
}

TEST_F(ServerQueueThreads, RemovedWorkersLeaveThePendingClosures)
{
    make(5, 1);
    Gate gate;
    occupy(gate);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    queue->put(closure([&] { ++calls; }));
    queue->removeThreads(1);
    gate.open();
    awaitThreads(0);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(queue->size(), 2U);
    EXPECT_EQ(recorder->getBacklog(), 2U);
    queue->addThreads(1);
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 2);
}

TEST_F(ServerQueueThreads, PutAppendsAfterAllThreadsWereRemoved)
{
    make(5, 1);
    Gate gate;
    occupy(gate);
    queue->removeThreads(1);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    queue->putProbe(closure([&] { ++calls; }));
    EXPECT_EQ(queue->tryPut(closure([&] { ++calls; })), 1);
    EXPECT_EQ(queue->size(), 3U);
    gate.open();
    awaitThreads(0);
    queue->put(closure([&] { ++calls; }));
    EXPECT_EQ(recorder->getBacklog(), 4U);
    EXPECT_EQ(calls, 0);
    queue->addThreads(2);
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 4);
}

TEST_F(ServerQueueThreads, BlockedPutKeepsWaitingWhenAllThreadsAreRemoved)
{
    make(1, 1);
    Gate gate;
    occupy(gate);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    Caller putter([&] { queue->put(closure([&] { ++calls; })); });
    EXPECT_TRUE(putter.awaitAsleep());
    queue->removeThreads(1);
    gate.open();
    awaitThreads(0);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    queue->addThreads(1);
    putter.join();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 2);
}

TEST_F(ServerQueueThreads, WorkerThatIsAddedAfterARemovalStays)
{
    for (const unsigned int capacity : {5U, 0U}) {
        make(capacity, 1);
        Gate gate;
        occupy(gate);
        queue->removeThreads(1);
        queue->addThreads(1);
        // The first worker must end: this closure does not wait until it is free.
        Gate isRun;
        queue->put(closure([&] { isRun.open(); }));
        isRun.pass();
        EXPECT_EQ(queue->threadCount(), 2U);
        gate.open();
        awaitThreads(1);
        endQueue();
    }
}

TEST_F(ServerQueueThreads, RefusePutsDiscardsPutsButNotProbes)
{
    make(1, 1);
    Gate gate;
    occupy(gate);
    std::atomic<int> calls{0};
    std::atomic<int> dropped{0};
    queue->put(closure([&] { ++calls; }));
    Caller putter([&] { queue->put(closure([&] { ++dropped; })); });
    EXPECT_TRUE(putter.awaitAsleep());
    qv::ServerQueueAccess::refusePuts(*queue);
    putter.join();
    queue->put(closure([&] { ++dropped; }));
    qv::ServerQueueAccess::putBeyondCapacity(*queue, closure([&] { ++dropped; }));
    RX_Closure* const rejected = closure([&] { ++dropped; });
    EXPECT_EQ(queue->tryPut(rejected), 0);
    rejected->detach();
    EXPECT_EQ(queue->isClosed(), 0);
    EXPECT_EQ(alive, 2) << "one runs, one is pending";
    queue->putProbe(closure([&] { ++calls; }));
    gate.open();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(dropped, 0);
}

TEST_F(ServerQueueThreads, PutBeyondCapacityNeverWaits)
{
    make(1, 1);
    Gate gate;
    occupy(gate);
    std::atomic<int> calls{0};
    for (int i = 0; i < 3; ++i) {
        qv::ServerQueueAccess::putBeyondCapacity(*queue, closure([&] { ++calls; }));
    }
    EXPECT_EQ(queue->size(), 3U);
    gate.open();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 3);
}

TEST_F(ServerQueueThreads, ConnectThrowsUnlessTheQueueIsEmptyAndWithoutThreads)
{
    make(5, 0);
    const auto expectRefusal = [this] {
        try {
            queue->connectActivityRecorder(nullptr);
            ADD_FAILURE();
        } catch (const RX_Exception& exception) {
            EXPECT_EQ(typeid(exception), typeid(RX_ExFatal));
            EXPECT_EQ(exception.getCode(), 51459);
            EXPECT_EQ(exception.getArgument(0), "size_nolock() == 0 && _threadCount == 0");
        }
    };
    queue->put(closure());
    expectRefusal();
    queue->flush();
    queue->addThreads(1);
    expectRefusal();
    queue->close();
    awaitThreads(0);
    queue->connectActivityRecorder(nullptr);
}

TEST_F(ServerQueueThreads, ConnectReplacesTheRecorder)
{
    make(5, 0);
    RX_ActivityRecorder* const other = new RX_ActivityRecorder;
    queue->connectActivityRecorder(other);
    // The same recorder again.
    queue->connectActivityRecorder(other);
    queue->put(closure());
    EXPECT_EQ(other->getBacklog(), 1U);
    EXPECT_EQ(recorder->getBacklog(), 0U);
    queue->flush();
    queue->connectActivityRecorder(nullptr);
    queue->put(closure());
    EXPECT_EQ(other->getBacklog(), 0U);
    other->detach();
}

TEST_F(ServerQueueThreads, HoldsAReferenceToTheRecorder)
{
    queue = new RX_ServerQueue(5);
    RX_ActivityRecorder* const other = new RX_ActivityRecorder;
    queue->connectActivityRecorder(other);
    other->detach();
    queue->put(closure());
    queue->flush();
}

TEST_F(ServerQueueThreads, DestructorDiscardsPendingClosures)
{
    make(5, 0);
    queue->put(closure());
    queue->put(closure());
    queue->detach();
    queue = nullptr;
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(recorder->getBacklog(), 0U);
}

TEST_F(ServerQueueThreads, LivesAsLongAsAWorkerRuns)
{
    make(5, 1);
    Gate gate;
    occupy(gate);
    queue->close();
    queue->detach();
    queue = nullptr;
    EXPECT_EQ(recorder->getBacklog(), 1U);
    gate.open();
    recorder->waitForQuiet();
}

TEST_F(ServerQueueThreads, WorkerWhoseThreadAClosureEndsIsReplaced)
{
    make(5, 1);
    for (int i = 0; i < 3; ++i) {
        queue->put(closure([] { pthread_exit(nullptr); }));
    }
    recorder->waitForQuiet();
    EXPECT_EQ(queue->threadCount(), 1U);
    EXPECT_EQ(alive, 0);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(queue->threadCount(), 1U);
}

TEST_F(ServerQueueThreads, IdleWorkerThatIsCancelledIsReplaced)
{
    make(5, 1);
    pthread_t worker{};
    queue->put(closure([&] { worker = pthread_self(); }));
    recorder->waitForQuiet();
    EXPECT_EQ(pthread_cancel(worker), 0);
    // These may run on the old thread or on the new one.
    std::atomic<int> calls{0};
    for (int i = 0; i < 100; ++i) {
        queue->put(closure([&] { ++calls; }));
        recorder->waitForQuiet();
    }
    EXPECT_EQ(calls, 100);
    EXPECT_EQ(queue->threadCount(), 1U);
}

TEST_F(ServerQueueThreads, RemovedWorkerIsNotReplacedIfAClosureEndsItsThread)
{
    make(5, 1);
    Gate gate;
    Gate isRunning;
    queue->put(closure([&] {
        isRunning.open();
        gate.pass();
        pthread_exit(nullptr);
    }));
    isRunning.pass();
    queue->removeThreads(1);
    queue->put(closure());
    gate.open();
    awaitThreads(0);
    EXPECT_EQ(queue->size(), 1U);
}

TEST_F(ServerQueueThreads, ThreadsMayEndWhileWorkersAreAddedAndRemoved)
{
    for (int round = 0; round < 20; ++round) {
        make(3, 2);
        std::atomic<int> calls{0};
        std::thread changer([&] {
            for (int i = 0; i < 10; ++i) {
                queue->addThreads(1);
                queue->removeThreads(1);
            }
        });
        for (int i = 0; i < 60; ++i) {
            queue->put(closure([&, i] {
                ++calls;
                if (i % 3 == 0) {
                    pthread_exit(nullptr);
                }
            }));
        }
        changer.join();
        recorder->waitForQuiet();
        EXPECT_EQ(calls, 60);
        awaitThreads(2);
        endQueue();
    }
}

TEST_F(ServerQueueThreads, MayBeClosedWhileManyThreadsPut)
{
    for (int round = 0; round < 20; ++round) {
        make(3, 2);
        std::atomic<int> calls{0};
        std::vector<std::thread> putters;
        for (int i = 0; i < 3; ++i) {
            putters.emplace_back([&] {
                for (int k = 0; k < 50; ++k) {
                    queue->put(closure([&] { ++calls; }));
                }
            });
        }
        if (round % 2 == 0) {
            // Like the shutdown of a pool.
            qv::ServerQueueAccess::refusePuts(*queue);
            queue->flush();
            queue->removeThreads(queue->threadCount());
            recorder->waitForQuiet();
        }
        queue->close();
        for (std::thread& putter : putters) {
            putter.join();
        }
        recorder->waitForQuiet();
        EXPECT_EQ(recorder->getBacklog(), 0U);
        EXPECT_EQ(alive, 0);
        EXPECT_LE(calls, 150);
        endQueue();
    }
}

#ifndef DALNIM_SANITIZED

/** Limits the memory of the process, so that the system has none for the stack of a third thread. */
bool isCountRightIfAThreadCannotBeStarted()
{
    constexpr rlim_t MEBIBYTE = 1024 * 1024;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 64 * MEBIBYTE);
    pthread_setattr_default_np(&attributes);

    RX_ServerQueue* const queue = new RX_ServerQueue(5);
    long pages = 0;
    {
        std::ifstream statm("/proc/self/statm");
        statm >> pages;
    }
    // Enough for the stacks of two, and for the heap that the first allocation of each thread maps.
    const rlim_t used = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    const rlimit limit = {used + 170 * MEBIBYTE, used + 170 * MEBIBYTE};
    setrlimit(RLIMIT_AS, &limit);

    bool hasFailed = false;
    try {
        queue->addThreads(100);
    } catch (const RX_Exception& exception) {
        hasFailed = exception.getCode() == EAGAIN;
    }
    const unsigned int count = queue->threadCount();
    RX_Closure0S* const probe = new RX_Closure0S([] {});
    probe->attach();
    queue->put(probe);
    probe->waitForCompletion();
    queue->close();
    while (queue->threadCount() != 0) {
        std::this_thread::yield();
    }
    return hasFailed && count > 0 && count < 3;
}

TEST(ServerQueueRefusal, ThreadCountIsRightIfAThreadCannotBeStarted)
{
    EXPECT_EXIT(_exit(isCountRightIfAThreadCannotBeStarted() ? 0 : 1), testing::ExitedWithCode(0), "");
}

#endif

[[noreturn]] void runAndDie()
{
    RX_ServerQueue* const queue = new RX_ServerQueue(5);
    queue->addThreads(1);
    queue->put(new RX_Closure_<void (*)()>([] { throw std::runtime_error("what it says"); }));
    for (;;) {
        pause();
    }
}

TEST(ServerQueueDeathTest, UncaughtExceptionIsReportedAndTerminates)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(runAndDie(), testing::KilledBySignal(SIGABRT),
                "qv: exception left RX_Closure_<void \\(\\*\\)\\(\\)> on a detached thread: "
                "std::runtime_error: what it says\n");
}

}
