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
    // All three are there at once.
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

TEST_F(ServerQueueThreads, ABusyWorkerEndsWhenItIsFree)
{
    make(5, 2);
    Gate first;
    Gate second;
    occupy(first);
    occupy(second);
    queue->removeThreads(1);
    EXPECT_EQ(queue->threadCount(), 2U);
    // Another stays: the one that is removed leaves the pending closure to it.
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    first.open();
    awaitThreads(1);
    EXPECT_EQ(calls, 0);
    second.open();
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 1);
}

TEST_F(ServerQueueThreads, RunsWhatIsPendingBeforeTheLastThreadsEnd)
{
    make(5, 1);
    Gate gate;
    occupy(gate);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    queue->put(closure([&] { ++calls; }));
    queue->removeThreads(1);
    gate.open();
    recorder->waitForQuiet();
    awaitThreads(0);
    EXPECT_EQ(calls, 2);
}

TEST_F(ServerQueueThreads, DropsWhatIsPutOnceAllThreadsWereRemoved)
{
    make(5, 1);
    Gate gate;
    occupy(gate);
    queue->removeThreads(1);
    std::atomic<int> calls{0};
    queue->put(closure([&] { ++calls; }));
    queue->putProbe(closure([&] { ++calls; }));
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(recorder->getBacklog(), 1U);
    gate.open();
    recorder->waitForQuiet();
    awaitThreads(0);
    queue->put(closure([&] { ++calls; }));
    EXPECT_EQ(recorder->getBacklog(), 0U);
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(calls, 0);
}

TEST_F(ServerQueueThreads, RemovingAllThreadsWakesThoseWhoWaitForRoom)
{
    make(1, 1);
    Gate gate;
    occupy(gate);
    queue->put(closure());
    Caller putter([&] { queue->put(closure()); });
    EXPECT_TRUE(putter.awaitAsleep());
    queue->removeThreads(1);
    putter.join();
    EXPECT_EQ(recorder->getBacklog(), 2U);
    gate.open();
    recorder->waitForQuiet();
}

TEST_F(ServerQueueThreads, RefusesARecorderUnlessItIsEmptyAndWithoutThreads)
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

TEST_F(ServerQueueThreads, ChangesItsRecorder)
{
    make(5, 0);
    RX_ActivityRecorder* const other = new RX_ActivityRecorder;
    queue->connectActivityRecorder(other);
    // The same once more.
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

TEST_F(ServerQueueThreads, KeepsItsRecorder)
{
    queue = new RX_ServerQueue(5);
    RX_ActivityRecorder* const other = new RX_ActivityRecorder;
    queue->connectActivityRecorder(other);
    other->detach();
    queue->put(closure());
    queue->flush();
}

TEST_F(ServerQueueThreads, DropsWhatIsPendingWhenItGoes)
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

TEST_F(ServerQueueThreads, CountsAWorkerOutThatAClosureEnds)
{
    make(5, 1);
    queue->put(closure([] { pthread_exit(nullptr); }));
    recorder->waitForQuiet();
    awaitThreads(0);
    EXPECT_EQ(alive, 0);
}

TEST_F(ServerQueueThreads, IsUsedFromManyThreadsWhileItCloses)
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

/** In a process of its own: a limit on memory makes the system refuse the stack of a third thread. */
bool keepsItsCountWhenAThreadIsRefused()
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
    // Room for the stacks of two, and for the heap that the first allocation of each thread maps.
    const rlim_t used = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    const rlimit limit = {used + 170 * MEBIBYTE, used + 170 * MEBIBYTE};
    setrlimit(RLIMIT_AS, &limit);

    bool isRefused = false;
    try {
        queue->addThreads(100);
    } catch (const RX_Exception& exception) {
        isRefused = exception.getCode() == EAGAIN;
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
    return isRefused && count > 0 && count < 3;
}

TEST(ServerQueueRefusal, LeavesTheCountOfThreadsRight)
{
    EXPECT_EXIT(_exit(keepsItsCountWhenAThreadIsRefused() ? 0 : 1), testing::ExitedWithCode(0), "");
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

TEST(ServerQueueDeathTest, AnExceptionEndsTheProcessAndIsNamed)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(runAndDie(), testing::KilledBySignal(SIGABRT),
                "qv: exception left RX_Closure_<void \\(\\*\\)\\(\\)> on a detached thread: "
                "std::runtime_error: what it says\n");
}

}
