#include <dalnim/sys/InitLock.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include <pthread.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qv/Threads.hpp>

namespace {

using com::kor::dal::nim::sys::InitLock;

static_assert(!std::is_default_constructible_v<InitLock>);
static_assert(!std::is_copy_constructible_v<InitLock>);
static_assert(!std::is_copy_assignable_v<InitLock>);
static_assert(std::is_nothrow_constructible_v<InitLock, bool>);
static_assert(std::is_nothrow_destructible_v<InitLock>);
static_assert(noexcept(std::declval<InitLock&>().acquire()));
static_assert(noexcept(std::declval<InitLock&>().release()));

/** Starts a thread that acquires the lock and releases it immediately. */
std::unique_ptr<qvtest::Caller> acquireAndRelease()
{
    return std::make_unique<qvtest::Caller>([] { const InitLock lock(true); });
}

/** Returns true if another thread blocks on the lock until `release` is called. */
template <class Release>
bool blocksOtherThreads(Release release)
{
    const std::unique_ptr<qvtest::Caller> other = acquireAndRelease();
    const bool waits = other->awaitAsleep();
    release();
    other->join();
    return waits;
}

/** Returns after another thread has acquired and released the lock; hangs if it cannot. */
void expectFree()
{
    acquireAndRelease()->join();
}

TEST(InitLock, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("InitLock", InitLock::CLASS_NAME);
}

TEST(InitLock, ConstructionWithFalseAcquiresNothing)
{
    const InitLock lock(false);
    expectFree();
}

TEST(InitLock, ExcludesOtherThreadsUntilItIsReleased)
{
    InitLock lock(true);
    EXPECT_TRUE(blocksOtherThreads([&lock] { lock.release(); }));
    expectFree();
}

TEST(InitLock, ExcludesOtherThreadsUntilItIsDestroyed)
{
    auto lock = std::make_unique<InitLock>(true);
    EXPECT_TRUE(blocksOtherThreads([&lock] { lock.reset(); }));
}

TEST(InitLock, CanBeAcquiredAfterConstruction)
{
    InitLock lock(false);
    lock.acquire();
    EXPECT_TRUE(blocksOtherThreads([&lock] { lock.release(); }));
}

TEST(InitLock, SecondAcquireOfAnObjectDoesNothing)
{
    InitLock lock(false);
    lock.acquire();
    lock.acquire();
    lock.release();
    expectFree();

    InitLock second(true);
    second.acquire();
    second.release();
    expectFree();
}

TEST(InitLock, SecondReleaseOfAnObjectDoesNothing)
{
    InitLock outer(true);
    InitLock inner(true);
    inner.release();
    inner.release();
    EXPECT_TRUE(blocksOtherThreads([&outer] { outer.release(); })) << "the outer one still holds it";
}

TEST(InitLock, IsSharedByTheObjectsOfAThread)
{
    InitLock first(true);
    InitLock second(true);
    InitLock third(false);
    third.acquire();
    first.release();
    second.release();
    EXPECT_TRUE(blocksOtherThreads([&third] { third.release(); }));
    expectFree();
}

TEST(InitLock, CanBeAcquiredAgainAfterARelease)
{
    InitLock lock(true);
    lock.release();
    lock.acquire();
    EXPECT_TRUE(blocksOtherThreads([&lock] { lock.release(); }));
}

TEST(InitLock, ExcludesManyThreads)
{
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&counter] {
            for (int i = 0; i < 1000; ++i) {
                const InitLock outer(true);
                const InitLock inner(true);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(8000L, counter);
}

// Forks: the child starts with the lock free, even if another thread held it.

/** Returns 0 if a child could acquire the lock within its time. */
int statusOfForkedAcquirer()
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        {
            const InitLock lock(true);
        }
        _exit(0);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : -1;
}

TEST(InitLockFork, LockIsFreeInParentAndChild)
{
    EXPECT_EQ(0, statusOfForkedAcquirer());
    expectFree();
    EXPECT_EQ(0, statusOfForkedAcquirer());
}

TEST(InitLockFork, LockIsFreeForThreadsOfTheChild)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        {
            const InitLock lock(true);
        }
        std::thread([] { const InitLock lock(true); }).join();
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

TEST(InitLockFork, ForkWaitsForTheOwner)
{
    static std::atomic<bool> forking{false};
    ASSERT_EQ(0, pthread_atfork([] { forking = true; }, nullptr, nullptr));
    forking = false;

    std::atomic<bool> held{false};
    bool workDone = false;
    std::thread worker([&] {
        const InitLock lock(true);
        held = true;
        while (!forking) {
            std::this_thread::yield();
        }
        // A fork that does not wait returns during this time, and finds the work incomplete.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        workDone = true;
    });
    while (!held) {
        std::this_thread::yield();
    }
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        {
            const InitLock lock(true);
        }
        // The thread sanitizer's _exit would miss the join of a thread that the child does not have.
        syscall(SYS_exit_group, workDone ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    worker.join();
    expectFree();
}

}
