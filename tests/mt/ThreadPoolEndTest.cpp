#include <dalnim/mt/ThreadPool.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <qv/Threads.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Keys;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::refusal;
using mttest::Work;
using nim::mem::RcoRef;
using nim::mt::Task;
using nim::mt::ThreadPool;
using qvtest::Caller;
using qvtest::Gate;
typedef std::chrono::steady_clock Clock;

/** A reference-counted task. */
class CountedTask : public Task, public nim::mem::RefCntObject
{
public:
    explicit CountedTask(std::atomic<int>& destroyedTasks, mttest::Call taskCall = nullptr)
        : Task(nullptr, nullptr), destroyed(destroyedTasks), call(std::move(taskCall))
    {
    }
    ~CountedTask() override
    {
        ++destroyed;
    }

    void run() override
    {
        if (call) {
            call();
        }
    }

private:
    std::atomic<int>& destroyed;
    mttest::Call call;
};

TEST(ThreadPoolManaged, TaskIsDeletedAfterItsRun)
{
    std::atomic<int> destroyed{0};
    std::atomic<int> runs{0};
    const auto pool = makePool(2, 3);
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }, &destroyed), true));
    }
    pool->shutdown(true);
    EXPECT_EQ(50, runs);
    EXPECT_EQ(50, destroyed);
}

TEST(ThreadPoolManaged, PoolHoldsAReferenceToAReferenceCountedTask)
{
    std::atomic<int> destroyed{0};
    const auto pool = makePool(1, 2);
    {
        Occupation worker(*pool, 1);
        auto* const task = new CountedTask(destroyed);
        RcoRef<CountedTask> kept(task);
        EXPECT_TRUE(pool->add(task, true));
        EXPECT_EQ(2U, kept->refCount());
        EXPECT_TRUE(pool->add(new CountedTask(destroyed), true));
        worker.end();
        awaitEnd(*kept);
        while (kept->refCount() != 1) {
            std::this_thread::yield();
        }
    }
    pool->shutdown(true);
    EXPECT_EQ(2, destroyed);
}

TEST(ThreadPoolManaged, TasksAreDestroyedByShutdown)
{
    std::atomic<int> destroyed{0};
    std::atomic<int> runs{0};
    OwnTask unmanaged([&] { ++runs; });
    auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }, &destroyed), true));
    EXPECT_TRUE(pool->add(new CountedTask(destroyed, [&] { ++runs; }), true));
    EXPECT_TRUE(pool->add(unmanaged));
    pool->shutdown(false);
    EXPECT_EQ(2, destroyed);
    EXPECT_EQ(Task::TSF_QUEUED, unmanaged.status());
    worker.end();
    pool.reset();
    EXPECT_EQ(0, runs);
    EXPECT_EQ(Task::TSF_QUEUED, unmanaged.status()) << "permanently";
}

TEST(ThreadPoolManaged, TaskRemainsTheCallersIfAddFails)
{
    const Keys keys;
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(new Content(-1)), keys.deep);
    std::atomic<int> destroyed{0};
    const auto pool = makePool(1, 2);
    OwnTask task(nullptr, &destroyed);
    testing::internal::CaptureStderr();
    EXPECT_THROW(pool->add(&task, true), std::runtime_error);
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "no partly constructed object remains";
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(Task::TSF_QUEUED, task.status());
    EXPECT_EQ("Attempt to add a non-ready Task", refusal([&] { pool->add(task); }));
    auto* const counted = new CountedTask(destroyed);
    const RcoRef<CountedTask> kept(counted);
    EXPECT_THROW(pool->add(counted, true), std::runtime_error);
    EXPECT_EQ(1U, kept->refCount());
    keys.removeAll();
}

TEST(ThreadPoolShutdown, SynchronousShutdownRunsAllQueuedTasks)
{
    std::atomic<int> runs{0};
    const auto pool = makePool(2, 100);
    std::deque<OwnTask> tasks;
    for (int i = 0; i < 60; ++i) {
        tasks.emplace_back([&] { ++runs; });
        EXPECT_TRUE(pool->add(tasks.back()));
    }
    pool->shutdown(true);
    EXPECT_EQ(60, runs);
    for (const OwnTask& task : tasks) {
        EXPECT_EQ(Task::TSF_FINISHED, task.status());
    }
}

TEST(ThreadPoolShutdown, IsSynchronousByDefault)
{
    const auto pool = makePool(1, 2);
    Occupation worker(*pool, 1);
    OwnTask task;
    EXPECT_TRUE(pool->add(task));
    Caller ender([&] { pool->shutdown(); });
    EXPECT_TRUE(ender.awaitAsleep());
    worker.end();
    ender.join();
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(ThreadPoolShutdown, WaitsForWorkersThatBecomeIdleWithinASecond)
{
    const auto pool = makePool(2, 2);
    std::atomic<bool> slowEnded{false};
    Gate entered;
    Gate leave;
    OwnTask slow([&] {
        entered.open();
        leave.pass();
        slowEnded = true;
    });
    EXPECT_TRUE(pool->add(slow));
    entered.pass();
    // The other worker runs the probe; shutdown() then waits for all workers, without a limit.
    std::atomic<bool> sawItEnd{false};
    Caller ender([&] {
        pool->shutdown(false);
        sawItEnd = slowEnded.load();
    });
    EXPECT_TRUE(ender.awaitAsleep());
    leave.open();
    ender.join();
    EXPECT_TRUE(sawItEnd);
}

TEST(ThreadPoolShutdown, DoesNotWaitForBusyWorkersAfterASecond)
{
    auto pool = makePool(1, 2);
    Gate entered;
    Gate leave;
    const ThreadPool* after = nullptr;
    OwnTask busy([&] {
        entered.open();
        leave.pass();
        // Only the address is compared: the pool has been destroyed.
        after = ThreadPool::currentPool();
    });
    EXPECT_TRUE(pool->add(busy));
    entered.pass();
    const ThreadPool* const address = pool.get();
    const Clock::time_point start = Clock::now();
    pool->shutdown(false);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(995));
    EXPECT_EQ(Task::TSF_RUNNING, busy.status());
    pool.reset();
    leave.open();
    awaitEnd(busy);
    EXPECT_EQ(address, after);
}

TEST(ThreadPoolShutdown, DiscardsTheTasksOfAPoolWithoutWorkers)
{
    std::atomic<int> destroyed{0};
    const auto pool = makePool(0, 2);
    OwnTask kept;
    EXPECT_TRUE(pool->add(kept, false));
    EXPECT_TRUE(pool->add(new OwnTask(nullptr, &destroyed), true, false));
    OwnTask third;
    EXPECT_FALSE(pool->add(third, false));
    const Clock::time_point start = Clock::now();
    pool->shutdown(false);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(995)) << "no worker runs the probe";
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(Task::TSF_QUEUED, kept.status());
}

TEST(ThreadPoolShutdown, SecondShutdownDoesNothing)
{
    const auto pool = makePool(1, 2);
    pool->shutdown(true, true);
    pool->shutdown(true);
    pool->shutdown(false, true);
    pool->shutdown();
    OwnTask task;
    EXPECT_EQ("ThreadPool already shutdown", refusal([&] { pool->add(task); }));
}

TEST(ThreadPoolShutdown, DestructorShutsDown)
{
    std::atomic<int> destroyed{0};
    for (int round = 0; round < 20; ++round) {
        auto pool = makePool(3, 4);
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(pool->add(new OwnTask(nullptr, &destroyed), true));
        }
    }
    EXPECT_EQ(200, destroyed) << "all have run or have been discarded";
}

TEST(ThreadPoolShutdown, DiscardsTheTaskOfABlockedAdd)
{
    for (const bool synchronous : {true, false}) {
        std::atomic<int> destroyed{0};
        std::atomic<int> runs{0};
        const auto pool = makePool(1, 1);
        Occupation worker(*pool, 1);
        std::atomic<int> pendingDestroyed{0};
        EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }, &pendingDestroyed), true));
        OwnTask blocked([&] { ++runs; });
        Caller adder([&] { pool->add(blocked); });
        Caller managing([&] { pool->add(new OwnTask([&] { ++runs; }, &destroyed), true); });
        EXPECT_TRUE(adder.awaitAsleep());
        EXPECT_TRUE(managing.awaitAsleep());
        Caller ender([&] { pool->shutdown(synchronous); });
        // The worker is still busy: the blocked adds return before any pending task runs.
        adder.join();
        managing.join();
        EXPECT_EQ(1, destroyed);
        EXPECT_EQ(Task::TSF_QUEUED, blocked.status());
        while (!synchronous && pendingDestroyed == 0) {
            std::this_thread::yield();
        }
        worker.end();
        ender.join();
        EXPECT_EQ(synchronous ? 1 : 0, runs);
        EXPECT_EQ(1, pendingDestroyed);
    }
}

TEST(ThreadPoolShutdown, ConcurrentAddsLoseNoTaskAndNoThread)
{
    for (int round = 0; round < 40; ++round) {
        std::atomic<int> made{0};
        std::atomic<int> destroyed{0};
        const auto pool = makePool(2, 3);
        std::vector<std::thread> submitters;
        for (const bool block : {true, false}) {
            submitters.emplace_back([&, block] {
                for (int i = 0; i < 200; ++i) {
                    auto task = std::make_unique<OwnTask>(nullptr, &destroyed);
                    ++made;
                    try {
                        if (pool->add(task.get(), true, block)) {
                            static_cast<void>(task.release());
                        }
                    } catch (const std::logic_error&) {
                        return;
                    }
                }
            });
        }
        while (made < 20) {
            std::this_thread::yield();
        }
        pool->shutdown(round % 2 == 0);
        for (std::thread& submitter : submitters) {
            submitter.join();
        }
        EXPECT_EQ(made, destroyed);
    }
}

/** A caller may destroy a task as soon as its status is TSF_FINISHED. */
TEST(ThreadPoolEnd, OwnerMayDestroyAFinishedPoolTaskImmediately)
{
    const auto pool = makePool(2, 2);
    std::atomic<int> runs{0};
    Work work([&] { ++runs; });
    for (int round = 0; round < 5000; ++round) {
        auto targeted = std::make_unique<Task>(work);
        auto own = std::make_unique<OwnTask>([&] { ++runs; });
        EXPECT_TRUE(pool->add(*targeted));
        EXPECT_TRUE(pool->add(*own));
        while (targeted->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        targeted.reset();
        while (own->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        own.reset();
    }
    EXPECT_EQ(10000, runs);
}

}
