// Tracks of running tasks, in a program in which sys::ThreadReport is installed.

#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/ThreadReport.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <qv/Threads.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::makePool;
using mttest::OwnTask;
using nim::mt::RunningTasks;
using nim::mt::Task;
using nim::mt::ThreadPool;
using nim::sys::StackTrack;
using nim::sys::ThreadReport;
using qvtest::Gate;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ThreadPoolTracks, RunningTaskIsDescribedByItsTracks)
{
    for (const bool isCollecting : {true, false}) {
        const auto pool = makePool(2, 5);
        if (isCollecting) {
            pool->collectStatistics();
        }
        Gate entered;
        Gate leave;
        OwnTask task([&] {
            const StackTrack track("scan()", "Index", "shop", 12);
            entered.open();
            leave.pass();
        });
        EXPECT_TRUE(pool->add(task));
        entered.pass();
        RunningTasks running;
        do {
            // The other worker has started, and has become idle, at some time.
            running = pool->runningTasks();
        } while (running.size() != 1);
        EXPECT_THAT(running[0].tracks, IsEmpty()) << "not requested";
        ThreadReport::install();
        running = pool->runningTasks(true);
        ASSERT_EQ(1U, running.size());
        EXPECT_THAT(running[0].tracks, ElementsAre("shop.Index.scan():12"));
        EXPECT_EQ(task.name(), running[0].name);
        EXPECT_EQ(task.taskId(), running[0].task);
        running = pool->shutdownWithin(0).running;
        ASSERT_EQ(1U, running.size());
        EXPECT_THAT(running[0].tracks, ElementsAre("shop.Index.scan():12"));
        EXPECT_EQ(task.name(), running[0].name);
        leave.open();
        awaitEnd(task);
    }
}

}
