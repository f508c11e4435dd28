#include <dalnim/mt/PoolStatistics.hpp>

#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/type/Cloneable.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include <qv/Threads.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::Content;
using mttest::Keys;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::refusal;
using nim::mt::PoolStatistics;
using nim::mt::Task;
using nim::mt::ThreadPool;
using qvtest::Caller;
using qvtest::Gate;
typedef PoolStatistics::Histogram Histogram;
typedef std::chrono::steady_clock Clock;

TEST(PoolStatistics, BucketsAreLimitedByThePowersOfTwo)
{
    EXPECT_EQ(0U, Histogram::bucket(0));
    EXPECT_EQ(1U, Histogram::bucket(1));
    EXPECT_EQ(2U, Histogram::bucket(2));
    EXPECT_EQ(2U, Histogram::bucket(3));
    EXPECT_EQ(3U, Histogram::bucket(4));
    EXPECT_EQ(10U, Histogram::bucket(1023));
    EXPECT_EQ(11U, Histogram::bucket(1024));
    EXPECT_EQ(30U, Histogram::bucket(1073741823));
    EXPECT_EQ(31U, Histogram::bucket(1073741824));
    EXPECT_EQ(31U, Histogram::bucket(0xFFFFFFFFFFFFFFFF));
    EXPECT_EQ(1U, Histogram::limit(0));
    EXPECT_EQ(1024U, Histogram::limit(10));
    EXPECT_EQ(1073741824U, Histogram::limit(30));
    EXPECT_EQ(32U, +Histogram::BUCKETS);
}

TEST(PoolStatistics, QuantileIsTheLimitOfItsBucket)
{
    Histogram times;
    EXPECT_EQ(0U, times.count());
    EXPECT_EQ(0U, times.quantile(0.5));
    times.counts[3] = 90;
    times.counts[10] = 9;
    times.counts[20] = 1;
    EXPECT_EQ(100U, times.count());
    EXPECT_EQ(8U, times.quantile(0.0));
    EXPECT_EQ(8U, times.quantile(0.5));
    EXPECT_EQ(8U, times.quantile(0.9));
    EXPECT_EQ(1024U, times.quantile(0.91));
    EXPECT_EQ(1024U, times.quantile(0.99));
    EXPECT_EQ(1048576U, times.quantile(0.999));
    EXPECT_EQ(1048576U, times.quantile(1.0));
}

TEST(PoolStatistics, PoolThatDoesNotCollectReturnsItsNameAndZeroes)
{
    ThreadPool pool("Orders", 3, 0, 0, 0, 0, 5);
    OwnTask task;
    EXPECT_TRUE(pool.add(task));
    pool.shutdown();
    const PoolStatistics figures = pool.statistics();
    EXPECT_EQ("Orders", figures.name);
    EXPECT_EQ(pool.poolId(), figures.id);
    EXPECT_EQ(3U, figures.workers);
    EXPECT_FALSE(figures.isCollecting);
    EXPECT_EQ(0U, figures.submitted);
    EXPECT_EQ(0U, figures.finished);
    EXPECT_EQ(0U, figures.waitingTime.count());
    EXPECT_EQ(0U, figures.runningTime.count());
}

TEST(PoolStatistics, TasksAreCountedInEachStage)
{
    const auto pool = makePool(2, 2);
    pool->collectStatistics();
    EXPECT_TRUE(pool->statistics().isCollecting);
    Occupation both(*pool, 2);
    OwnTask first([] { throw std::runtime_error("first"); });
    OwnTask second;
    OwnTask third;
    EXPECT_TRUE(pool->add(first, false));
    EXPECT_TRUE(pool->add(second, false));
    EXPECT_FALSE(pool->add(third, false));
    PoolStatistics figures = pool->statistics();
    EXPECT_EQ(4U, figures.submitted);
    EXPECT_EQ(1U, figures.refused);
    EXPECT_EQ(2U, figures.pending);
    EXPECT_EQ(2U, figures.running);
    EXPECT_EQ(0U, figures.finished);
    EXPECT_EQ(2U, figures.waitingTime.count());
    EXPECT_EQ(0U, figures.runningTime.count());
    both.end();
    pool->shutdown(true);
    EXPECT_EQ("ThreadPool already shutdown", refusal([&] { pool->add(third); }));
    figures = pool->statistics();
    EXPECT_EQ(4U, figures.submitted);
    EXPECT_EQ(2U, figures.refused);
    EXPECT_EQ(0U, figures.discarded);
    EXPECT_EQ(4U, figures.finished);
    EXPECT_EQ(1U, figures.thrown);
    EXPECT_EQ(0U, figures.pending);
    EXPECT_EQ(0U, figures.running);
    EXPECT_EQ(4U, figures.waitingTime.count());
    EXPECT_EQ(4U, figures.runningTime.count());
}

TEST(PoolStatistics, FinishedTaskIsCountedWhenItsStateShowsIt)
{
    const auto pool = makePool(1, 2);
    pool->collectStatistics();
    for (unsigned int i = 1; i <= 200; ++i) {
        OwnTask task;
        EXPECT_TRUE(pool->add(task));
        mttest::awaitEnd(task);
        const PoolStatistics figures = pool->statistics();
        ASSERT_EQ(i, figures.finished);
        ASSERT_EQ(0U, figures.running);
    }
}

TEST(PoolStatistics, TimesAreInTheirBuckets)
{
    const auto pool = makePool(1, 2);
    pool->collectStatistics();
    OwnTask slow([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    OwnTask waiting;
    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(pool->add(slow));
    EXPECT_TRUE(pool->add(waiting));
    pool->shutdown(true);
    const auto total = static_cast<nim::UInt64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count());
    const PoolStatistics figures = pool->statistics();
    EXPECT_GE(figures.runningTime.microseconds, 20000U);
    EXPECT_LE(figures.runningTime.microseconds, total);
    EXPECT_LE(figures.waitingTime.microseconds, 2 * total);
    // 20 milliseconds are in the bucket up to 32.768 milliseconds, or in a later one on a busy machine.
    EXPECT_GE(figures.runningTime.quantile(1.0), 32768U);
    nim::UInt64_t below = 0;
    for (unsigned int i = 0; i < Histogram::bucket(20000); ++i) {
        below += figures.runningTime.counts[i];
    }
    EXPECT_LE(below, 1U) << "the task that does nothing";
}

TEST(PoolStatistics, DiscardedTasksAreNeitherPendingNorFinished)
{
    const auto pool = makePool(1, 5);
    pool->collectStatistics();
    Occupation worker(*pool, 1);
    OwnTask kept;
    EXPECT_TRUE(pool->add(kept));
    EXPECT_TRUE(pool->add(new OwnTask, true));
    Caller ender([&] { pool->shutdown(false); });
    while (pool->statistics().discarded != 2) {
        std::this_thread::yield();
    }
    EXPECT_EQ(0U, pool->statistics().pending);
    worker.end();
    ender.join();
    const PoolStatistics figures = pool->statistics();
    EXPECT_EQ(3U, figures.submitted);
    EXPECT_EQ(1U, figures.finished);
    EXPECT_EQ(2U, figures.discarded);
}

TEST(PoolStatistics, TaskOfAnAddThatFailsIsNotSubmitted)
{
    const Keys keys;
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(new Content(-1)), keys.deep);
    const auto pool = makePool(1, 2);
    pool->collectStatistics();
    OwnTask task;
    EXPECT_THROW(pool->add(task), std::runtime_error);
    EXPECT_EQ(0U, pool->statistics().submitted);
    EXPECT_EQ(0U, pool->statistics().pending);
    keys.removeAll();
}

TEST(PoolStatistics, TasksAddedBeforeCollectingAreNotCounted)
{
    const auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    OwnTask before;
    EXPECT_TRUE(pool->add(before));
    pool->collectStatistics();
    OwnTask after;
    EXPECT_TRUE(pool->add(after));
    EXPECT_EQ(1U, pool->statistics().pending);
    pool->collectStatistics();
    worker.end();
    pool->shutdown(true);
    const PoolStatistics figures = pool->statistics();
    EXPECT_EQ(1U, figures.submitted);
    EXPECT_EQ(1U, figures.finished);
}

TEST(PoolStatistics, TaskThatEndsItsThreadIsFinishedWithoutAnException)
{
    const auto pool = makePool(1, 5);
    pool->collectStatistics();
    OwnTask leaving([] { pthread_exit(nullptr); });
    OwnTask next;
    EXPECT_TRUE(pool->add(leaving));
    EXPECT_TRUE(pool->add(next));
    pool->shutdown(true);
    const PoolStatistics figures = pool->statistics();
    EXPECT_EQ(2U, figures.finished);
    EXPECT_EQ(0U, figures.thrown);
    EXPECT_EQ(0U, figures.running);
}

TEST(PoolStatistics, TaskThatOutlivesItsPoolIsCountedWithoutHarm)
{
    auto pool = makePool(1, 2);
    pool->collectStatistics();
    Gate entered;
    Gate leave;
    OwnTask busy([&] {
        entered.open();
        leave.pass();
        throw std::runtime_error("after the pool");
    });
    EXPECT_TRUE(pool->add(busy));
    entered.pass();
    pool.reset();
    leave.open();
    mttest::awaitEnd(busy);
    EXPECT_EQ(Task::TSF_FINISHED, busy.status());
}

TEST(PoolStatistics, LaterStagesNeverExceedEarlierOnesWhileWorkersGoOn)
{
    constexpr int TASKS = 2000;
    const auto pool = makePool(3, 50);
    pool->collectStatistics();
    std::atomic<bool> isOver{false};
    Caller reader([&] {
        while (!isOver) {
            const PoolStatistics figures = pool->statistics();
            ASSERT_LE(figures.thrown, figures.finished);
            ASSERT_LE(figures.finished + figures.running + figures.pending + figures.discarded,
                      figures.submitted);
            ASSERT_LE(figures.running, 3U);
        }
    });
    std::vector<std::thread> submitters;
    for (int i = 0; i < 2; ++i) {
        submitters.emplace_back([&] {
            for (int j = 0; j < TASKS; ++j) {
                // Each task throws: otherwise there would be a margin between the two counts.
                pool->add(new OwnTask([j] { throw j; }), true);
            }
        });
    }
    for (std::thread& submitter : submitters) {
        submitter.join();
    }
    pool->shutdown(true);
    isOver = true;
    reader.join();
    const PoolStatistics figures = pool->statistics();
    EXPECT_EQ(4000U, figures.submitted);
    EXPECT_EQ(4000U, figures.finished);
    EXPECT_EQ(4000U, figures.thrown);
    EXPECT_EQ(4000U, figures.waitingTime.count());
    EXPECT_EQ(4000U, figures.runningTime.count());
}

}
