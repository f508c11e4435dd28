// The class is internal to the library, so this program compiles its source.

#include <dalnim/mt/src/TaskWaitBucket.cpp>
#include <dalnim/sys/internal/src/ForkSafeMutex.cpp>

#include <qv/rtlapi/RX_ExFatal.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <thread>

#include <qv/Threads.hpp>
#include <support/InChildProcess.hpp>
#include <support/Sanitizers.hpp>

namespace com::kor::dal::nim::mt {
namespace {

using qvtest::Caller;
using qvtest::Gate;
using support::inChildProcess;

typedef TaskWaitBucket::Lock Lock;

RX_AbsTime deadlineIn(int seconds, int nanoseconds = 0)
{
    return RX_AbsTime(RX_RelTime(seconds, nanoseconds));
}

/** Returns the bucket of an arbitrary address. */
TaskWaitBucket& anyBucket()
{
    return TaskWaitBucket::of(nullptr);
}

TEST(TaskWaitBucket, AllocationsInARowHaveDifferentBuckets)
{
    std::array<char, 64 * 16> allocations = {};
    std::set<const TaskWaitBucket*> found;
    for (std::size_t i = 0; i < allocations.size(); i += 16) {
        found.insert(&TaskWaitBucket::of(reinterpret_cast<const Task*>(&allocations[i])));
    }
    EXPECT_LE(32U, found.size());
    EXPECT_EQ(&TaskWaitBucket::of(reinterpret_cast<const Task*>(&allocations)),
              &TaskWaitBucket::of(reinterpret_cast<const Task*>(&allocations)));
}

TEST(TaskWaitBucket, WaitEndsAtItsDeadline)
{
    const Lock lock(anyBucket());
    EXPECT_FALSE(lock.waitUntil(deadlineIn(0, 1000000)));
    EXPECT_FALSE(lock.waitUntil(deadlineIn(-2000000000))) << "before the epoch of the clock";
}

TEST(TaskWaitBucket, WakeAllWakesEachWaitingThread)
{
    std::atomic<int> woken{0};
    const auto wait = [&woken] {
        const Lock lock(anyBucket());
        while (woken == 0 && lock.waitUntil(deadlineIn(60))) {
            ++woken;
        }
    };
    Caller first(wait);
    EXPECT_TRUE(first.awaitAsleep());
    Caller second(wait);
    EXPECT_TRUE(second.awaitAsleep());
    anyBucket().wakeAll();
    first.join();
    second.join();
    EXPECT_EQ(2, woken);
}

TEST(TaskWaitBucket, LockingTwiceRaisesTheSystemsError)
{
    const Lock lock(anyBucket());
    try {
        const Lock again(anyBucket());
        FAIL() << "it is not recursive";
    } catch (const RX_ExFatal& error) {
        EXPECT_EQ(EDEADLK, error.getCode());
    }
}

TEST(TaskWaitBucket, IsUnlockedInTheChildOfAForkWhileAnotherThreadHoldsIt)
{
    Gate held;
    Gate end;
    std::thread holder([&] {
        const Lock lock(anyBucket());
        held.open();
        end.pass();
    });
    held.pass();
    EXPECT_EQ(0, inChildProcess([] {
                  alarm(20);
                  const Lock lock(anyBucket());
                  EXPECT_FALSE(lock.waitUntil(deadlineIn(0, 1000000)));
              }));
    end.open();
    holder.join();
}

TEST(TaskWaitBucket, ChildOfAForkWaitsAndWakesWhileAThreadOfTheParentWaits)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the thread sanitizer does not support threads in the child of a fork";
    }
    std::atomic<bool> isOver{false};
    Caller waiter([&isOver] {
        const Lock lock(anyBucket());
        while (!isOver && lock.waitUntil(deadlineIn(60))) {
        }
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    EXPECT_EQ(0, inChildProcess([] {
                  alarm(20);
                  bool isReady = false;
                  bool isWoken = false;
                  std::thread waking;
                  {
                      const Lock lock(anyBucket());
                      waking = std::thread([&isReady] {
                          const Lock inner(anyBucket());
                          isReady = true;
                          inner.wakeAll();
                      });
                      while (!isReady) {
                          isWoken = lock.waitUntil(deadlineIn(30));
                      }
                  }
                  waking.join();
                  EXPECT_TRUE(isWoken);
              }));
    {
        const Lock lock(anyBucket());
        isOver = true;
        lock.wakeAll();
    }
}

}
}
