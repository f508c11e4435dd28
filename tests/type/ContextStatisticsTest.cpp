#include <dalnim/type/ContextStatistics.hpp>

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>

#include <gtest/gtest.h>

#include <deque>
#include <thread>
#include <vector>

#include "Content.hpp"

namespace {

using namespace typetest;
using com::kor::dal::nim::type::ContextStatistics;
namespace mt = com::kor::dal::nim::mt;

struct Nothing : mt::Runnable
{
    void run() override {}
};

/** What has been counted since the construction of this. */
class Counted
{
public:
    Counted() : before(enabled()) {}

    std::uint64_t made() const
    {
        return ContainerContext::statistics().made - before.made;
    }
    std::uint64_t duplicated() const
    {
        return ContainerContext::statistics().duplicated - before.duplicated;
    }
    std::uint64_t attached() const
    {
        return ContainerContext::statistics().attached - before.attached;
    }
    std::int64_t alive() const
    {
        return static_cast<std::int64_t>(ContainerContext::statistics().alive - before.alive);
    }

private:
    static ContextStatistics enabled()
    {
        ContextStatistics::enable();
        return ContainerContext::statistics();
    }

    const ContextStatistics before;
};

}

TEST(ContextStatistics, NothingIsCountedUntilTheyAreEnabled)
{
    if (ContextStatistics::isEnabled()) {
        GTEST_SKIP() << "another test of this process has enabled them";
    }
    {
        const Bag bag;
        const Bag copy(bag);
        const ContextStatistics statistics = ContainerContext::statistics();
        EXPECT_EQ(0U, statistics.made + statistics.duplicated + statistics.attached + statistics.alive);
    }
    ContextStatistics::enable();
    EXPECT_TRUE(ContextStatistics::isEnabled());
}

TEST(ContextStatistics, ConstructionAndDestructionAreCounted)
{
    const Counted counted;
    {
        const Bag one;
        const Bag two;
        EXPECT_EQ(2U, counted.made());
        EXPECT_EQ(2, counted.alive());
    }
    EXPECT_EQ(2U, counted.made());
    EXPECT_EQ(0, counted.alive());
    EXPECT_EQ(0U, counted.duplicated());
}

TEST(ContextStatistics, CopyAndAssignmentAreDuplicates)
{
    Bag source;
    const Counted counted;
    const Bag copyOfNothing(source);
    EXPECT_EQ(1U, counted.duplicated());
    source.add(RefCntObjectRef(new Item), SHARED);
    Bag copy(source);
    EXPECT_EQ(2U, counted.duplicated());
    copy = source;
    EXPECT_EQ(3U, counted.duplicated());
    EXPECT_EQ(2U, counted.made());
    EXPECT_EQ(2, counted.alive());
    EXPECT_EQ(0U, counted.attached());
}

TEST(ContextStatistics, TasksAttachDuplicates)
{
    ContainerContext::current();
    const Counted counted;
    Nothing nothing;
    std::deque<mt::Task> tasks;
    mt::ThreadPool pool("pool", 1, 0, 0, 0, 0, 8);
    for (int i = 0; i < 3; ++i) {
        pool.add(tasks.emplace_back(nothing));
    }
    pool.shutdown();
    EXPECT_EQ(3U, counted.duplicated());
    EXPECT_EQ(3U, counted.attached());
    EXPECT_EQ(1U, counted.made()) << "the current context of the worker";
    while (counted.alive() != 0) {
        // The worker is ending.
        std::this_thread::yield();
    }
}

TEST(ContextStatistics, ThreadHasADuplicateAndAContextOfItsOwn)
{
    ContainerContext::current();
    const Counted counted;
    Nothing nothing;
    {
        mt::Thread thread(nothing, true, "thread");
        thread.start();
        thread.join();
    }
    EXPECT_EQ(1U, counted.duplicated());
    EXPECT_EQ(2U, counted.made());
    while (counted.alive() != 0) {
        std::this_thread::yield();
    }
}

TEST(ContextStatistics, EventsOfManyThreadsAreCountedExactly)
{
    const Counted counted;
    std::vector<std::thread> threads;
    for (int i = 0; i < 20; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 500; ++round) {
                const Bag bag;
                const Bag copy(bag);
                const ContextStatistics statistics = ContainerContext::statistics();
                EXPECT_LE(statistics.alive, statistics.made);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(20000U, counted.made());
    EXPECT_EQ(10000U, counted.duplicated());
    EXPECT_EQ(0, counted.alive());
}
