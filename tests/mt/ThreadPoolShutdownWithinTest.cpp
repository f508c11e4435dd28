#include <dalnim/mt/ThreadPool.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include <qv/Threads.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Call;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::refusal;
using nim::mt::RunningTasks;
using nim::mt::Task;
using nim::mt::ThreadPool;
using nim::mt::UnfinishedTasks;
using qvtest::Caller;
using qvtest::Gate;
typedef std::chrono::steady_clock Clock;

constexpr unsigned int LONG = 60000;

/** A task that is its own target and has a name. */
class NamedTask : public Task
{
public:
    NamedTask(const char* name, Call taskCall) : Task(name), call(std::move(taskCall)) {}

    void run() override
    {
        call();
    }

private:
    Call call;
};

/** A task that runs until it is released, and its thread. */
class Stuck
{
public:
    Call call()
    {
        return [this] {
            thread = gettid();
            entered.open();
            leave.pass();
        };
    }

    Gate entered;
    Gate leave;
    std::atomic<nim::ThreadID_t> thread{0};
};

TEST(ThreadPoolShutdownWithin, RunsAllQueuedTasksIfTheTimeSuffices)
{
    std::atomic<int> runs{0};
    const auto pool = makePool(2, 100);
    std::deque<OwnTask> tasks;
    for (int i = 0; i < 60; ++i) {
        EXPECT_TRUE(pool->add(tasks.emplace_back([&] { ++runs; })));
    }
    const UnfinishedTasks unfinished = pool->shutdownWithin(LONG);
    EXPECT_EQ(60, runs);
    EXPECT_EQ(0U, unfinished.discarded);
    EXPECT_TRUE(unfinished.running.empty());
    OwnTask late;
    EXPECT_EQ("ThreadPool already shutdown", refusal([&] { pool->add(late); }));
}

TEST(ThreadPoolShutdownWithin, ReturnsAsSoonAsTheLastTaskHasEnded)
{
    const auto pool = makePool(1, 2);
    Stuck stuck;
    OwnTask task(stuck.call());
    EXPECT_TRUE(pool->add(task));
    stuck.entered.pass();
    Caller ender([&] { EXPECT_TRUE(pool->shutdownWithin(LONG).running.empty()); });
    EXPECT_TRUE(ender.awaitAsleep());
    const Clock::time_point start = Clock::now();
    stuck.leave.open();
    ender.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(ThreadPoolShutdownWithin, DiscardsQueuedTasksIfAskedTo)
{
    std::atomic<int> destroyed{0};
    std::atomic<int> runs{0};
    const auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    OwnTask kept([&] { ++runs; });
    EXPECT_TRUE(pool->add(kept));
    EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }, &destroyed), true));
    UnfinishedTasks unfinished;
    Caller ender([&] { unfinished = pool->shutdownWithin(LONG, ThreadPool::Queued::DISCARD); });
    while (destroyed != 1) {
        std::this_thread::yield();
    }
    worker.end();
    ender.join();
    EXPECT_EQ(2U, unfinished.discarded);
    EXPECT_TRUE(unfinished.running.empty());
    EXPECT_EQ(0, runs);
    EXPECT_EQ(Task::TSF_QUEUED, kept.status());
}

TEST(ThreadPoolShutdownWithin, TaskThatRunsLongerThanTheLimitIsDescribed)
{
    const auto pool = makePool(3, 5);
    pool->collectStatistics();
    Stuck stuck;
    NamedTask task("reindex", stuck.call());
    OwnTask queued;
    EXPECT_TRUE(pool->add(task));
    stuck.entered.pass();
    const Clock::time_point start = Clock::now();
    const UnfinishedTasks unfinished = pool->shutdownWithin(50);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_EQ(0U, unfinished.discarded);
    ASSERT_EQ(1U, unfinished.running.size());
    EXPECT_EQ(task.taskId(), unfinished.running[0].task);
    EXPECT_EQ("reindex", unfinished.running[0].name);
    EXPECT_EQ(stuck.thread, unfinished.running[0].thread);
    EXPECT_GE(unfinished.running[0].milliseconds, 50U);
    EXPECT_FALSE(unfinished.running[0].threadName.empty());
    EXPECT_EQ(Task::TSF_RUNNING, task.status());
    stuck.leave.open();
    awaitEnd(task);
    EXPECT_TRUE(pool->shutdownWithin(LONG).running.empty()) << "the call may be repeated";
}

TEST(ThreadPoolShutdownWithin, TasksQueuedAtTheEndOfTheTimeAreDiscarded)
{
    std::atomic<int> destroyed{0};
    const auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(pool->add(new OwnTask(nullptr, &destroyed), true));
    }
    const UnfinishedTasks unfinished = pool->shutdownWithin(20, ThreadPool::Queued::FINISH);
    EXPECT_EQ(3U, unfinished.discarded);
    EXPECT_EQ(1U, unfinished.running.size());
    EXPECT_EQ(3, destroyed);
}

TEST(ThreadPoolShutdownWithin, WithoutStatisticsTasksAreDescribedByTheirThreads)
{
    const auto pool = makePool(4, 5);
    Stuck stuck;
    OwnTask task(stuck.call());
    EXPECT_TRUE(pool->add(task));
    stuck.entered.pass();
    const UnfinishedTasks unfinished = pool->shutdownWithin(0);
    ASSERT_EQ(1U, unfinished.running.size()) << "idle workers are not included";
    EXPECT_EQ(0U, unfinished.running[0].task);
    EXPECT_EQ("", unfinished.running[0].name);
    EXPECT_EQ(0U, unfinished.running[0].milliseconds);
    EXPECT_EQ(stuck.thread, unfinished.running[0].thread);
    stuck.leave.open();
    awaitEnd(task);
}

TEST(ThreadPoolShutdownWithin, LimitOfZeroDoesNotWait)
{
    const auto idle = makePool(4, 5);
    EXPECT_TRUE(idle->shutdownWithin(0).running.empty());
    const auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    OwnTask queued;
    EXPECT_TRUE(pool->add(queued));
    const UnfinishedTasks unfinished = pool->shutdownWithin(0);
    EXPECT_EQ(1U, unfinished.discarded);
    EXPECT_EQ(1U, unfinished.running.size());
    EXPECT_EQ(Task::TSF_QUEUED, queued.status());
}

TEST(ThreadPoolShutdownWithin, PoolMayBeDestroyedWhileATaskRuns)
{
    std::atomic<int> destroyed{0};
    auto pool = makePool(2, 5);
    pool->collectStatistics();
    pool->setExceptionHandler([](const Task*, const std::exception*, const std::exception_ptr&) {});
    Stuck stuck;
    Stuck managed;
    OwnTask task(stuck.call());
    EXPECT_TRUE(pool->add(task));
    stuck.entered.pass();
    EXPECT_TRUE(pool->add(new OwnTask(
                              [&] {
                                  managed.call()();
                                  throw 42;
                              },
                              &destroyed),
                          true));
    managed.entered.pass();
    EXPECT_EQ(2U, pool->shutdownWithin(0).running.size());
    const Clock::time_point start = Clock::now();
    pool.reset();
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(900)) << "no probe";
    EXPECT_EQ(Task::TSF_RUNNING, task.status());
    EXPECT_EQ(0, destroyed);
    stuck.leave.open();
    managed.leave.open();
    awaitEnd(task);
    while (destroyed != 1) {
        std::this_thread::yield();
    }
}

TEST(ThreadPoolShutdownWithin, PoolMayNeverBeDestroyed)
{
    // The task uses the pool after its end: the pool must exist.
    static ThreadPool* const abandoned = makePool(1, 5).release();
    static Stuck stuck;
    static std::atomic<const ThreadPool*> current{nullptr};
    static OwnTask task([] {
        stuck.call()();
        OwnTask late;
        EXPECT_EQ("ThreadPool already shutdown", refusal([&] { ThreadPool::currentPool()->add(late); }));
        current = ThreadPool::currentPool();
    });
    EXPECT_TRUE(abandoned->add(task));
    stuck.entered.pass();
    EXPECT_EQ(1U, abandoned->shutdownWithin(0).running.size());
    stuck.leave.open();
    awaitEnd(task);
    EXPECT_EQ(abandoned, current);
}

TEST(ThreadPoolShutdownWithin, MayFollowAShutdownThatDidNotWait)
{
    const auto pool = makePool(1, 5);
    pool->collectStatistics();
    Stuck stuck;
    NamedTask task("slow", stuck.call());
    EXPECT_TRUE(pool->add(task));
    stuck.entered.pass();
    pool->shutdown(false);
    const UnfinishedTasks unfinished = pool->shutdownWithin(1);
    ASSERT_EQ(1U, unfinished.running.size());
    EXPECT_EQ("slow", unfinished.running[0].name);
    stuck.leave.open();
    EXPECT_TRUE(pool->shutdownWithin(LONG).running.empty());
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(ThreadPoolShutdownWithin, TaskOfThePoolFindsItselfInTheResult)
{
    const auto pool = makePool(2, 5);
    pool->collectStatistics();
    RunningTasks running;
    NamedTask task("self", [&] { running = pool->shutdownWithin(10).running; });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    ASSERT_EQ(1U, running.size());
    EXPECT_EQ("self", running[0].name);
}

TEST(ThreadPoolShutdownWithin, BlockedAddReturnsAndItsTaskIsDiscarded)
{
    const auto pool = makePool(1, 1);
    Occupation worker(*pool, 1);
    OwnTask pending;
    OwnTask blocked;
    EXPECT_TRUE(pool->add(pending));
    Caller adder([&] { EXPECT_TRUE(pool->add(blocked)); });
    EXPECT_TRUE(adder.awaitAsleep());
    EXPECT_EQ(1U, pool->shutdownWithin(10).discarded);
    adder.join();
    EXPECT_EQ(Task::TSF_QUEUED, blocked.status());
}

TEST(ThreadPoolShutdownWithin, ConcurrentAddsLoseNoTask)
{
    for (int round = 0; round < 40; ++round) {
        std::atomic<int> made{0};
        std::atomic<int> destroyed{0};
        {
            const auto pool = makePool(2, 3);
            Caller submitter([&] {
                for (int i = 0; i < 200; ++i) {
                    auto task = std::make_unique<OwnTask>(nullptr, &destroyed);
                    ++made;
                    try {
                        if (pool->add(task.get(), true, i % 2 == 0)) {
                            static_cast<void>(task.release());
                        }
                    } catch (const std::logic_error&) {
                        return;
                    }
                }
            });
            while (made < 20) {
                std::this_thread::yield();
            }
            EXPECT_TRUE(pool->shutdownWithin(LONG, round % 2 == 0 ? ThreadPool::Queued::FINISH
                                                                  : ThreadPool::Queued::DISCARD)
                            .running.empty());
            submitter.join();
        }
        EXPECT_EQ(made, destroyed);
    }
}

TEST(RunningTasks, DescribesTheTasksOfBusyWorkers)
{
    const auto pool = makePool(3, 5);
    pool->collectStatistics();
    Stuck first;
    Stuck second;
    const std::string longName(100, 'n');
    NamedTask one("one", first.call());
    NamedTask two(longName.c_str(), second.call());
    EXPECT_TRUE(pool->add(one));
    EXPECT_TRUE(pool->add(two));
    first.entered.pass();
    second.entered.pass();
    RunningTasks running;
    do {
        // The third worker has started, and has become idle, at some time.
        running = pool->runningTasks();
    } while (running.size() != 2);
    if (running[0].task != one.taskId()) {
        std::swap(running[0], running[1]);
    }
    EXPECT_EQ("one", running[0].name);
    EXPECT_EQ(first.thread, running[0].thread);
    EXPECT_EQ(two.taskId(), running[1].task);
    EXPECT_EQ(longName.substr(0, 64), running[1].name) << "truncated";
    EXPECT_EQ(second.thread, running[1].thread);
    first.leave.open();
    second.leave.open();
    pool->shutdown(true);
    EXPECT_TRUE(pool->shutdownWithin(LONG).running.empty());
}

TEST(RunningTasks, NamesAndIdsBelongTogetherWhileTasksChange)
{
    const auto pool = makePool(2, 50);
    pool->collectStatistics();
    std::atomic<bool> isOver{false};
    Caller reader([&] {
        while (!isOver) {
            for (const nim::mt::RunningTask& task : pool->runningTasks()) {
                // Each name repeats one letter, which its length determines.
                ASSERT_TRUE(task.task == 0 || !task.name.empty());
                const std::string expected(task.name.size(), task.name.empty() ? ' ' : task.name[0]);
                ASSERT_EQ(expected, task.name);
                ASSERT_TRUE(task.name.empty()
                            || task.name.size() == static_cast<std::size_t>(task.name[0] - 'A'));
            }
        }
    });
    for (int i = 0; i < 3000; ++i) {
        const int length = 1 + i % 56;
        const std::string name(static_cast<std::size_t>(length), static_cast<char>('A' + length));
        pool->add(new NamedTask(name.c_str(), [] {}), true);
    }
    pool->shutdown(true);
    isOver = true;
}

}
