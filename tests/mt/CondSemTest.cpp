#include <dalnim/mt/CondSem.hpp>

#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/SysMutexCondSem.hpp>
#include <dalnim/sys/SysError.hpp>
#include <qv/rtlapi/RX_Mutex.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

namespace {

using com::kor::dal::nim::mt::CondSem;
using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::mt::MutexOps;
using com::kor::dal::nim::mt::SysMutex;
using com::kor::dal::nim::mt::SysMutexCondSem;
using com::kor::dal::nim::sys::system_error;
using qvtest::Caller;
typedef std::chrono::steady_clock Clock;
typedef std::chrono::milliseconds Ms;

static_assert(std::has_virtual_destructor_v<CondSem>);
static_assert(std::is_nothrow_destructible_v<CondSem>);
static_assert(!std::is_copy_constructible_v<CondSem>);
static_assert(!std::is_copy_assignable_v<CondSem>);
static_assert(std::is_same_v<const CondSem&, decltype(std::declval<const CondSem&>().acquire())>);
static_assert(!std::is_polymorphic_v<SysMutexCondSem>);

/** A lock that counts its calls and its destruction. */
class SpiedLock : public MutexOps
{
public:
    explicit SpiedLock(int* destroyed = nullptr) : destroyed_(destroyed) {}
    ~SpiedLock() noexcept override
    {
        if (destroyed_ != nullptr) {
            ++*destroyed_;
        }
    }

    const MutexOps& acquire() const override
    {
        ++acquired;
        mutex.lock();
        return *this;
    }
    void release() const override
    {
        ++released;
        mutex.unlock();
    }
    bool release(const std::nothrow_t&) const override
    {
        ++releasedQuietly;
        mutex.unlock();
        return true;
    }
    bool request() const override
    {
        ++requested;
        return mutex.tryLock() != 0;
    }

    mutable int acquired = 0;
    mutable int released = 0;
    mutable int releasedQuietly = 0;
    mutable int requested = 0;

private:
    void* os_mux() const override
    {
        return &mutex;
    }

    mutable RX_Mutex mutex;
    int* destroyed_;
};

/** Returns true if another thread can acquire the lock. */
bool isFree(const MutexOps& mutex)
{
    bool got = false;
    std::thread([&] { got = mutex.request() && mutex.release(std::nothrow); }).join();
    return got;
}

TEST(CondSem, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("CondSem", CondSem::CLASS_NAME);
}

TEST(CondSem, HasNoVirtualFunctions)
{
    EXPECT_EQ(-1, virtualSlot(&CondSem::acquire));
    EXPECT_EQ(-1, virtualSlot(&CondSem::request));
    EXPECT_EQ(-1, virtualSlot(&CondSem::signal));
    EXPECT_EQ(-1, virtualSlot(&CondSem::broadcast));
    EXPECT_EQ(-1, virtualSlot(&CondSem::wait));
}

TEST(CondSem, CreatesALockIfItOwnsNone)
{
    const CondSem sem(nullptr, true);
    EXPECT_EQ(&sem, &sem.acquire());
    bool other = true;
    std::thread([&] { other = sem.request(); }).join();
    EXPECT_FALSE(other);
    sem.release();
    EXPECT_TRUE(sem.request());
    EXPECT_FALSE(sem.wait(0));
    EXPECT_TRUE(sem.release(std::nothrow));
}

TEST(CondSem, ThrowsEINVALWithoutALock)
{
    try {
        const CondSem sem(nullptr, false);
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(22, error.error());
        EXPECT_STREQ("Invalid argument", error.what());
    }
    EXPECT_THROW(const CondSem sem(nullptr), system_error);
}

TEST(CondSem, UsesTheLockOfTheCaller)
{
    int destroyed = 0;
    {
        const SpiedLock lock(&destroyed);
        {
            const CondSem byReference(lock);
            const CondSem byPointer(const_cast<SpiedLock*>(&lock), false);
            byReference.acquire();
            byReference.release();
            EXPECT_TRUE(byPointer.request());
            EXPECT_TRUE(byPointer.release(std::nothrow));
        }
        EXPECT_EQ(0, destroyed);
        EXPECT_EQ(1, lock.acquired);
        EXPECT_EQ(1, lock.released);
        EXPECT_EQ(1, lock.requested);
        EXPECT_EQ(1, lock.releasedQuietly);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(CondSem, OwnsALockThatWasTransferred)
{
    int destroyed = 0;
    {
        const CondSem sem(new SpiedLock(&destroyed), true);
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(CondSem, ThrowsTheFailuresOfItsLock)
{
    const SysMutex mutex;
    const CondSem sem(mutex);
    EXPECT_FALSE(sem.release(std::nothrow));
    try {
        sem.release();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(1, error.error());
    }
}

class CondSemTest : public testing::Test
{
protected:
    void wake(void (CondSem::*operation)() const)
    {
        const MutexHolder<MutexOps> holder(mutex.acquire());
        woken = true;
        (sem.*operation)();
    }

    const SysMutex mutex;
    const CondSem sem{mutex};
    bool woken = false;
};

TEST_F(CondSemTest, CanBeOwnedByAMutexHolder)
{
    {
        const MutexHolder<CondSem> holder(sem.acquire());
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST_F(CondSemTest, TimeOutOfZeroDoesNotWait)
{
    const MutexHolder<CondSem> holder(sem.acquire());
    EXPECT_FALSE(sem.wait(0));
    EXPECT_FALSE(isFree(mutex)) << "it is acquired again after a time-out";
}

TEST_F(CondSemTest, WaitLastsForSecondsAndMilliseconds)
{
    const MutexHolder<CondSem> holder(sem.acquire());
    const Clock::time_point end = Clock::now() + Ms(1500);
    // A spurious wake-up is rare and allowed.
    while (sem.wait(static_cast<unsigned int>(
        std::max<Ms::rep>(0, std::chrono::duration_cast<Ms>(end - Clock::now()).count())))) {
    }
    EXPECT_GE(Clock::now(), end - Ms(5));
    EXPECT_FALSE(isFree(mutex));
}

TEST_F(CondSemTest, WaitReleasesTheLock)
{
    for (const unsigned int limit : {60000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        SCOPED_TRACE(limit);
        woken = false;
        bool last = false;
        Caller waiter([&] {
            const MutexHolder<CondSem> holder(sem.acquire());
            while (!woken) {
                last = sem.wait(limit);
            }
        });
        EXPECT_TRUE(waiter.awaitAsleep()) << "the longest timed wait must not wrap round to none";
        EXPECT_TRUE(isFree(mutex));
        wake(&CondSem::signal);
        waiter.join();
        EXPECT_TRUE(last);
    }
}

TEST_F(CondSemTest, WaitsWithoutLimitByDefault)
{
    Caller waiter([this] {
        const MutexHolder<CondSem> holder(sem.acquire());
        while (!woken) {
            EXPECT_TRUE(sem.wait());
        }
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    wake(&CondSem::broadcast);
}

TEST_F(CondSemTest, SignalWakesOneAndBroadcastWakesAll)
{
    int tickets = 0;
    int served = 0;
    const auto serve = [&] {
        const MutexHolder<CondSem> holder(sem.acquire());
        while (tickets == 0) {
            EXPECT_TRUE(sem.wait());
        }
        --tickets;
        ++served;
    };
    Caller first(serve);
    Caller second(serve);
    Caller third(serve);
    for (const Caller* waiter : {&first, &second, &third}) {
        EXPECT_TRUE(waiter->awaitAsleep());
    }
    {
        const MutexHolder<CondSem> holder(sem.acquire());
        tickets = 1;
        sem.signal();
    }
    while (!first.hasEnded() && !second.hasEnded() && !third.hasEnded()) {
        std::this_thread::yield();
    }
    {
        const MutexHolder<CondSem> holder(sem.acquire());
        EXPECT_EQ(1, served);
        tickets = 2;
        sem.broadcast();
    }
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(3, served);
}

TEST_F(CondSemTest, SignalWithoutAWaiterIsLost)
{
    sem.signal();
    sem.broadcast();
    {
        const MutexHolder<CondSem> holder(sem.acquire());
        EXPECT_FALSE(sem.wait(0));
        EXPECT_FALSE(sem.wait(1));
    }
    Caller waiter([this] {
        const MutexHolder<CondSem> holder(sem.acquire());
        while (!woken) {
            sem.wait(0xFFFFFFFF);
        }
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    wake(&CondSem::signal);
}

TEST_F(CondSemTest, FailedWaitReturnsFalse)
{
    // The system rejects a wait without the lock.
    EXPECT_NO_THROW(EXPECT_FALSE(sem.wait(60000)));
    EXPECT_NO_THROW(EXPECT_FALSE(sem.wait(0xFFFFFFFF)));
}

TEST(SysMutexCondSem, ConditionUsesTheMutex)
{
    const SysMutexCondSem pair;
    pair.sig.acquire();
    EXPECT_FALSE(isFree(pair.sync));
    EXPECT_FALSE(pair.sig.wait(0));
    pair.sync.release();
    EXPECT_TRUE(isFree(pair.sync));
}

}
