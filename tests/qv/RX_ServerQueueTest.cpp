#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qv/rtlapi/RX_ActivityRecorder.hpp>
#include <qv/rtlapi/RX_Closure0S.hpp>
#include <qv/rtlapi/RX_Closure_.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include "Threads.hpp"

namespace {

using qvtest::Caller;
using qvtest::Gate;

static_assert(std::is_base_of_v<RX_Lockable, RX_ServerQueue>);

void doNothing()
{
}

class ServerQueue : public testing::Test
{
protected:
    void SetUp() override
    {
        recorder = new RX_ActivityRecorder;
    }
    void TearDown() override
    {
        if (queue != nullptr) {
            endQueue();
        }
        recorder->detach();
        EXPECT_EQ(alive, 0);
    }

    void make(unsigned int capacity, unsigned int threads)
    {
        queue = new RX_ServerQueue(capacity);
        queue->connectActivityRecorder(recorder);
        queue->addThreads(threads);
    }

    /** Closes the queue and waits until its last worker is gone. */
    void endQueue()
    {
        queue->close();
        recorder->waitForQuiet();
        awaitThreads(0);
        queue->detach();
        queue = nullptr;
    }

    void awaitThreads(unsigned int count)
    {
        while (queue->threadCount() != count) {
            std::this_thread::yield();
        }
    }

    /** A closure that is counted as long as it lives. */
    RX_Closure* closure(std::function<void()> function = doNothing)
    {
        return new Counted(alive, std::move(function));
    }

    /** A closure that runs until the gate is open; returns once it runs. */
    void occupy(Gate& gate)
    {
        Gate isRunning;
        queue->put(closure([&] {
            isRunning.open();
            gate.pass();
        }));
        isRunning.pass();
    }

    std::atomic<int> alive{0};
    RX_ServerQueue* queue = nullptr;
    RX_ActivityRecorder* recorder = nullptr;

private:
    class Counted : public RX_Closure
    {
    public:
        Counted(std::atomic<int>& alive, std::function<void()> function)
            : _alive(alive), _function(std::move(function))
        {
            ++_alive;
        }
        ~Counted() noexcept(false) override
        {
            --_alive;
        }
        void apply() override
        {
            _function();
        }

    private:
        std::atomic<int>& _alive;
        std::function<void()> _function;
    };
};

TEST_F(ServerQueue, IsOpenAndEmptyAtFirst)
{
    make(3, 0);
    EXPECT_EQ(queue->isClosed(), 0);
    EXPECT_EQ(queue->size(), 0U);
    EXPECT_EQ(queue->threadCount(), 0U);
    const RX_Locked_ locked(*queue);
    EXPECT_EQ(queue->size_nolock(), 0U);
}

TEST_F(ServerQueue, JustAppendsWithoutThreads)
{
    make(2, 0);
    queue->put(closure());
    queue->put(closure());
    EXPECT_EQ(queue->size(), 2U);
    EXPECT_EQ(recorder->getBacklog(), 2U);
    EXPECT_EQ(alive, 2);
}

TEST_F(ServerQueue, RunsWhatIsPutAndReleasesIt)
{
    make(10, 2);
    std::atomic<int> calls{0};
    for (int i = 0; i < 100; ++i) {
        queue->put(closure([&] { ++calls; }));
    }
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 100);
    // Released before the recorder was told.
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

TEST_F(ServerQueue, PutProbeWaitsForNoRoom)
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
    RX_Closure0S* const probe = new RX_Closure0S(doNothing);
    probe->attach();
    queue->putProbe(probe);
    probe->waitForCompletion();
    probe->detach();
    recorder->waitForQuiet();
}

TEST_F(ServerQueue, TryPutTakesAClosureWhenThereIsRoom)
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

TEST_F(ServerQueue, RunsAPendingClosureOnTheCaller)
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

TEST_F(ServerQueue, LetsAnExceptionPassToTheCallerThatRunsIt)
{
    make(5, 0);
    queue->put(closure([] { throw 5; }));
    EXPECT_THROW(queue->runPending(), int);
    EXPECT_EQ(recorder->getBacklog(), 0U);
    EXPECT_EQ(alive, 0);
}

TEST_F(ServerQueue, MakesRoomWhenTheCallerRunsOne)
{
    make(1, 0);
    queue->put(closure());
    Caller putter([&] { queue->put(closure()); });
    EXPECT_TRUE(putter.awaitAsleep());
    EXPECT_EQ(queue->runPending(), 1);
    putter.join();
    EXPECT_EQ(queue->size(), 1U);
}

TEST_F(ServerQueue, FlushDropsWhatIsPending)
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

TEST_F(ServerQueue, FlushMakesRoom)
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

TEST_F(ServerQueue, CloseDropsWhatIsPendingAndEndsTheWorkers)
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

TEST_F(ServerQueue, DropsWhatIsPutAfterClose)
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

TEST_F(ServerQueue, CloseWakesThoseWhoWaitForRoom)
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

TEST_F(ServerQueue, OfNoCapacityHandsOverToAFreeWorker)
{
    make(0, 2);
    std::atomic<int> calls{0};
    for (int i = 0; i < 50; ++i) {
        queue->put(closure([&] { ++calls; }));
    }
    recorder->waitForQuiet();
    EXPECT_EQ(calls, 50);
}

TEST_F(ServerQueue, OfNoCapacityWaitsForAFreeWorker)
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

TEST_F(ServerQueue, OfNoCapacityWaitsForAThread)
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

TEST_F(ServerQueue, OfNoCapacityTakesAProbe)
{
    make(0, 1);
    Gate gate;
    occupy(gate);
    queue->putProbe(closure());
    EXPECT_EQ(queue->size(), 1U);
    gate.open();
    recorder->waitForQuiet();
}

TEST_F(ServerQueue, AddsThreads)
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

TEST_F(ServerQueue, StartsNoThreadsOnceClosed)
{
    make(5, 0);
    queue->close();
    queue->addThreads(2);
    EXPECT_EQ(queue->threadCount(), 0U);
}

TEST_F(ServerQueue, RemovesIdleThreads)
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

TEST_F(ServerQueue, RemovesNoMoreThreadsThanThereAre)
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

TEST_F(ServerQueue, ABusyWorkerEndsWhenItIsFree)
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

TEST_F(ServerQueue, RunsWhatIsPendingBeforeTheLastThreadsEnd)
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

TEST_F(ServerQueue, DropsWhatIsPutOnceAllThreadsWereRemoved)
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

TEST_F(ServerQueue, RemovingAllThreadsWakesThoseWhoWaitForRoom)
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

TEST_F(ServerQueue, RefusesARecorderUnlessItIsEmptyAndWithoutThreads)
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

TEST_F(ServerQueue, ChangesItsRecorder)
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

TEST_F(ServerQueue, KeepsItsRecorder)
{
    queue = new RX_ServerQueue(5);
    RX_ActivityRecorder* const other = new RX_ActivityRecorder;
    queue->connectActivityRecorder(other);
    other->detach();
    queue->put(closure());
    queue->flush();
}

TEST_F(ServerQueue, DropsWhatIsPendingWhenItGoes)
{
    make(5, 0);
    queue->put(closure());
    queue->put(closure());
    queue->detach();
    queue = nullptr;
    EXPECT_EQ(alive, 0);
    EXPECT_EQ(recorder->getBacklog(), 0U);
}

TEST_F(ServerQueue, LivesAsLongAsAWorkerRuns)
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

TEST_F(ServerQueue, CountsAWorkerOutThatAClosureEnds)
{
    make(5, 1);
    queue->put(closure([] { pthread_exit(nullptr); }));
    recorder->waitForQuiet();
    awaitThreads(0);
    EXPECT_EQ(alive, 0);
}

TEST_F(ServerQueue, IsUsedFromManyThreadsWhileItCloses)
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
    RX_Closure0S* const probe = new RX_Closure0S(doNothing);
    probe->attach();
    queue->put(probe);
    probe->waitForCompletion();
    queue->close();
    while (queue->threadCount() != 0) {
        std::this_thread::yield();
    }
    return isRefused && count > 0 && count < 3;
}

TEST(ServerQueueThreads, AreCountedRightWhenOneIsRefused)
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
