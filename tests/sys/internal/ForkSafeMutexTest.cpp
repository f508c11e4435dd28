// The class is the library's own: this program compiles it into itself.

#include <dalnim/sys/internal/src/ForkSafeMutex.cpp>

#include <dalnim/mt/CriticalSection.hpp>

#include "support/InChildProcess.hpp"
#include "support/Sanitizers.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <type_traits>

namespace com::kor::dal::nim::sys::internal {
namespace {

using support::inChildProcess;

static_assert(std::is_trivially_destructible_v<ForkSafeMutex>, "used until the process has ended");
static_assert(!std::is_copy_constructible_v<ForkSafeMutex>);

/** Usable before any constructor has run. */
[[maybe_unused]] constexpr ForkSafeMutex CONSTANT(true);

/** The thread sanitizer reports the attempt. */
void expectNoUnlock(ForkSafeMutex& mutex)
{
    if (!support::UNDER_THREAD_SANITIZER) {
        EXPECT_EQ(EPERM, mutex.unlock());
    }
}

bool isFree(ForkSafeMutex& mutex)
{
    return mutex.lock() == 0 && mutex.unlock() == 0;
}

bool isFreeForThreads(ForkSafeMutex& mutex)
{
    bool result = false;
    std::thread([&] { result = isFree(mutex); }).join();
    return result;
}

/** A point in time on the monotonic clock, from now. */
std::timespec deadlineIn(std::chrono::milliseconds interval)
{
    std::timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto nanos = std::chrono::nanoseconds(interval).count() + now.tv_nsec;
    return {now.tv_sec + nanos / 1000000000, nanos % 1000000000};
}

/** A thread that holds a mutex until the end of the scope. */
class Holder
{
public:
    explicit Holder(ForkSafeMutex& mutex)
        : thread([this, &mutex] {
              mutex.lock();
              isHeld = true;
              while (!isOver) {
                  std::this_thread::yield();
              }
              mutex.unlock();
          })
    {
        while (!isHeld) {
            std::this_thread::yield();
        }
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    ~Holder()
    {
        isOver = true;
        thread.join();
    }

private:
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isOver{false};
    std::thread thread;
};

TEST(ForkSafeMutex, LockingTwiceFailsUnlessRecursive)
{
    ForkSafeMutex plain(false);
    EXPECT_EQ(0, plain.lock());
    EXPECT_EQ(EDEADLK, plain.lock());
    EXPECT_EQ(0, plain.unlock());
    expectNoUnlock(plain);
    ForkSafeMutex recursive(true);
    EXPECT_EQ(0, recursive.lock());
    EXPECT_EQ(0, recursive.lock());
    EXPECT_EQ(0, recursive.unlock());
    EXPECT_EQ(0, recursive.unlock());
    expectNoUnlock(recursive);
}

TEST(ForkSafeMutex, IsFreeInParentAndChildAfterAFork)
{
    for (const bool isRecursive : {false, true}) {
        ForkSafeMutex mutex(isRecursive);
        EXPECT_TRUE(mutex.prepare());
        EXPECT_EQ(0, inChildProcess([&] {
                      mutex.afterForkInChild();
                      EXPECT_TRUE(isFree(mutex));
                      EXPECT_TRUE(isFreeForThreads(mutex));
                      // The child of the child.
                      EXPECT_TRUE(mutex.prepare());
                      EXPECT_EQ(0, inChildProcess([&] {
                                    mutex.afterForkInChild();
                                    EXPECT_TRUE(isFreeForThreads(mutex));
                                }));
                      mutex.afterForkInParent();
                      EXPECT_TRUE(isFreeForThreads(mutex));
                  }));
        mutex.afterForkInParent();
        EXPECT_TRUE(isFreeForThreads(mutex));
    }
}

TEST(ForkSafeMutex, IsStillHeldByAThreadThatForksWhileItHoldsIt)
{
    ForkSafeMutex mutex(false);
    ASSERT_EQ(0, mutex.lock());
    const std::timespec deadline = deadlineIn(std::chrono::hours(1));
    EXPECT_TRUE(mutex.prepare(&deadline));
    EXPECT_EQ(0, inChildProcess([&] {
                  mutex.afterForkInChild();
                  EXPECT_EQ(EDEADLK, mutex.lock());
                  EXPECT_EQ(0, mutex.unlock());
                  EXPECT_TRUE(isFreeForThreads(mutex));
              }));
    mutex.afterForkInParent();
    EXPECT_EQ(EDEADLK, mutex.lock());
    EXPECT_EQ(0, mutex.unlock());
}

TEST(ForkSafeMutex, PrepareStopsWaitingAtTheDeadline)
{
    ForkSafeMutex mutex(false);
    const Holder holder(mutex);
    const auto begin = std::chrono::steady_clock::now();
    const std::timespec deadline = deadlineIn(std::chrono::milliseconds(50));
    EXPECT_FALSE(mutex.prepare(&deadline));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(49));
    // The parent leaves it to its owner.
    mutex.afterForkInParent();
    expectNoUnlock(mutex);
    const std::timespec past = deadlineIn(std::chrono::milliseconds(0));
    EXPECT_FALSE(mutex.prepare(&past));
    EXPECT_EQ(0, inChildProcess([&] {
                  mutex.afterForkInChild();
                  EXPECT_TRUE(isFree(mutex));
              }));
    mutex.afterForkInParent();
}

TEST(ForkSafeMutex, FreeMutexIsAcquiredEvenIfTheDeadlineHasPassed)
{
    ForkSafeMutex mutex(false);
    const std::timespec past = deadlineIn(std::chrono::milliseconds(0));
    EXPECT_TRUE(mutex.prepare(&past));
    EXPECT_EQ(EDEADLK, mutex.lock());
    mutex.afterForkInParent();
    EXPECT_TRUE(isFreeForThreads(mutex));
}

TEST(ForkSafeMutex, PrepareWaitsForTheOwner)
{
    ForkSafeMutex mutex(false);
    std::atomic<bool> isDone{false};
    std::atomic<bool> isHeld{false};
    std::thread owner([&] {
        mutex.lock();
        isHeld = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        isDone = true;
        mutex.unlock();
    });
    while (!isHeld) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(mutex.prepare());
    EXPECT_TRUE(isDone);
    mutex.afterForkInParent();
    owner.join();
}

TEST(ForkSafeMutex, HoldsACriticalSection)
{
    const mt::CriticalSection section(false);
    ForkSafeMutex::Hold hold;
    EXPECT_TRUE(hold.prepare(ForkSafeMutex::of(section), nullptr));
    EXPECT_EQ(0, inChildProcess([&] {
                  hold.afterForkInChild(ForkSafeMutex::of(section), false);
                  EXPECT_TRUE(section.request());
                  EXPECT_TRUE(section.release(std::nothrow));
              }));
    hold.afterForkInParent(ForkSafeMutex::of(section));
    EXPECT_TRUE(section.request());
    EXPECT_TRUE(section.release(std::nothrow));
}

TEST(ForkSafeLock, HoldsTheMutexForAScope)
{
    ForkSafeMutex mutex(false);
    {
        const ForkSafeLock lock(mutex);
        EXPECT_EQ(EDEADLK, mutex.lock());
        // Another one on the same thread leaves it to the first.
        const ForkSafeLock second(mutex);
    }
    EXPECT_TRUE(isFreeForThreads(mutex));
}

}
}
