#include <dalnim/mt/SysMutex.hpp>

#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::mt::MutexOps;
using com::kor::dal::nim::mt::SysMutex;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using testing::MatchesRegex;

static_assert(std::is_abstract_v<MutexOps>);
static_assert(std::has_virtual_destructor_v<MutexOps>);
static_assert(!std::is_copy_constructible_v<MutexOps>);
static_assert(!std::is_copy_assignable_v<MutexOps>);
static_assert(std::is_convertible_v<SysMutex*, MutexOps*>);
static_assert(!std::is_copy_constructible_v<SysMutex>);
static_assert(!std::is_copy_assignable_v<SysMutex>);
static_assert(!std::is_move_constructible_v<SysMutex>);
static_assert(std::is_nothrow_destructible_v<SysMutex>);
static_assert(noexcept(std::declval<const SysMutex&>().release(std::nothrow)));
static_assert(std::is_same_v<const MutexOps&, decltype(std::declval<const SysMutex&>().acquire())>);
static_assert(sizeof(SysMutex) == 2 * sizeof(void*), "its mutex is on the heap");

template <class Call>
auto onOtherThread(Call call)
{
    decltype(call()) result{};
    std::thread([&] { result = call(); }).join();
    return result;
}

bool isFree(const MutexOps& mutex)
{
    return onOtherThread([&mutex] { return mutex.request() && mutex.release(std::nothrow); });
}

TEST(MutexOps, OrderOfVirtualFunctionsIsFixed)
{
    EXPECT_STREQ("MutexOps", MutexOps::CLASS_NAME);
    EXPECT_EQ(2, virtualSlot(&MutexOps::acquire));
    EXPECT_EQ(3, virtualSlot(static_cast<void (MutexOps::*)() const>(&MutexOps::release)));
    EXPECT_EQ(4,
              virtualSlot(static_cast<bool (MutexOps::*)(const std::nothrow_t&) const>(&MutexOps::release)));
    EXPECT_EQ(5, virtualSlot(&MutexOps::request));
}

/** A lock of an application. Its non-throwing release is not declared `noexcept`. */
class OwnLock : public MutexOps
{
public:
    const MutexOps& acquire() const override
    {
        ++held;
        return *this;
    }
    void release() const override
    {
        --held;
    }
    bool release(const std::nothrow_t&) const override
    {
        --held;
        return true;
    }
    bool request() const override
    {
        return false;
    }

    mutable int held = 0;

private:
    void* os_mux() const override
    {
        return nullptr;
    }
};

TEST(MutexOps, CanBeImplementedByApplications)
{
    const OwnLock lock;
    {
        const MutexHolder<MutexOps> holder(lock.acquire());
        EXPECT_EQ(1, lock.held);
    }
    EXPECT_EQ(0, lock.held);
}

class SysMutexTest : public testing::Test
{
protected:
    const SysMutex mutex;
    const MutexOps& lock = mutex;
};

TEST_F(SysMutexTest, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("SysMutex", SysMutex::CLASS_NAME);
}

TEST_F(SysMutexTest, IsHeldByOneThread)
{
    EXPECT_TRUE(isFree(lock));
    EXPECT_EQ(&lock, &lock.acquire());
    EXPECT_FALSE(isFree(lock));
    lock.release();
    EXPECT_TRUE(isFree(lock));
}

TEST_F(SysMutexTest, AcquireWaitsForTheOwner)
{
    lock.acquire();
    qvtest::Caller other([this] {
        lock.acquire();
        lock.release();
    });
    EXPECT_TRUE(other.awaitAsleep());
    lock.release();
    other.join();
}

TEST_F(SysMutexTest, RequestAcquiresTheLock)
{
    EXPECT_TRUE(lock.request());
    EXPECT_FALSE(lock.request()) << "it is not recursive";
    EXPECT_FALSE(onOtherThread([this] { return lock.request(); }));
    EXPECT_TRUE(lock.release(std::nothrow));
    EXPECT_TRUE(isFree(lock));
}

TEST_F(SysMutexTest, ReleaseWithoutAnAcquireFails)
{
    EXPECT_FALSE(lock.release(std::nothrow));
    const StackTrack track("caller()", 0);
    try {
        lock.release();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(1, error.error());
        EXPECT_STREQ("Operation not permitted", error.what());
        ASSERT_EQ(2U, error.trace().size());
        EXPECT_THAT(error.trace()[0],
                    MatchesRegex("com\\.kor\\.dal\\.nim\\.mt\\.SysMutex\\.release\\(\\):[0-9]+"));
        EXPECT_EQ("caller()", error.trace()[1]);
    }
    EXPECT_TRUE(isFree(lock));
}

TEST_F(SysMutexTest, ReleaseByAnotherThreadFails)
{
    lock.acquire();
    EXPECT_FALSE(onOtherThread([this] { return lock.release(std::nothrow); }));
    EXPECT_EQ(1, onOtherThread([this] {
                  try {
                      lock.release();
                  } catch (const system_error& error) {
                      return error.error();
                  }
                  return 0;
              }));
    EXPECT_FALSE(isFree(lock));
    lock.release();
}

TEST_F(SysMutexTest, SecondAcquireByTheOwnerFails)
{
    lock.acquire();
    try {
        lock.acquire();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(35, error.error());
        EXPECT_STREQ("Resource deadlock avoided", error.what());
        ASSERT_EQ(1U, error.trace().size());
        EXPECT_THAT(error.trace()[0],
                    MatchesRegex("com\\.kor\\.dal\\.nim\\.mt\\.SysMutex\\.acquire\\(\\):[0-9]+"));
    }
    lock.release();
    EXPECT_TRUE(isFree(lock));
}

TEST_F(SysMutexTest, ExcludesManyThreads)
{
    long counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, &counter] {
            for (int i = 0; i < 2000; ++i) {
                const MutexHolder<MutexOps> holder(lock.acquire());
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(8000L, counter);
}

TEST(SysMutexDeathTest, DestroyingALockedMutexTerminatesTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const SysMutex mutex;
            mutex.acquire();
        },
        testing::KilledBySignal(SIGABRT), "RX_ExFatal");
}

}
