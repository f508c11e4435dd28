// The locks by the operations that the standard library expects.

#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <type_traits>

#include <qv/Threads.hpp>

namespace {

using com::kor::dal::nim::mt::CondSem;
using com::kor::dal::nim::mt::CriticalSection;
using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::mt::MutexOps;
using com::kor::dal::nim::mt::ReaderWriterLock;
using com::kor::dal::nim::mt::SysMutex;
using com::kor::dal::nim::sys::system_error;
using qvtest::Caller;

/** A condition with its own lock; it can be constructed without arguments. */
class OwnCondSem : public CondSem
{
public:
    OwnCondSem() : CondSem(nullptr, true) {}
};

template <class Lock>
class StandardLocks : public testing::Test
{
protected:
    /** Returns true if another thread can acquire the lock. */
    template <class L>
    static bool isFree(L& lock)
    {
        bool isAcquired = false;
        Caller other([&] {
            std::unique_lock attempt(lock, std::try_to_lock);
            isAcquired = attempt.owns_lock();
        });
        other.join();
        return isAcquired;
    }

    Lock lock;
};

typedef testing::Types<CriticalSection, const CriticalSection, SysMutex, const SysMutex, OwnCondSem,
                       ReaderWriterLock, const ReaderWriterLock>
    Locks;
TYPED_TEST_SUITE(StandardLocks, Locks, );

TYPED_TEST(StandardLocks, LockGuardHoldsTheLockForItsScope)
{
    {
        const std::lock_guard guard(this->lock);
        EXPECT_FALSE(this->isFree(this->lock));
    }
    EXPECT_TRUE(this->isFree(this->lock));
}

TYPED_TEST(StandardLocks, UniqueLockLocksAndUnlocks)
{
    std::unique_lock guard(this->lock, std::defer_lock);
    EXPECT_TRUE(this->isFree(this->lock));
    guard.lock();
    EXPECT_FALSE(this->isFree(this->lock));
    guard.unlock();
    EXPECT_TRUE(this->isFree(this->lock));
    EXPECT_TRUE(guard.try_lock());
    EXPECT_FALSE(this->isFree(this->lock));
}

TYPED_TEST(StandardLocks, ScopedLockHoldsLocksOfDifferentTypes)
{
    SysMutex mutex;
    const ReaderWriterLock other;
    {
        const std::scoped_lock guard(this->lock, mutex, other);
        EXPECT_FALSE(this->isFree(this->lock));
        EXPECT_FALSE(this->isFree(mutex));
        EXPECT_FALSE(this->isFree(other));
    }
    EXPECT_TRUE(this->isFree(this->lock));
    EXPECT_TRUE(this->isFree(mutex));
    EXPECT_TRUE(this->isFree(other));
}

TYPED_TEST(StandardLocks, ScopedLocksInOppositeOrdersDoNotDeadlock)
{
    SysMutex other;
    long guarded = 0;
    const auto count = [&](auto& first, auto& second) {
        for (int i = 0; i < 1000; ++i) {
            const std::scoped_lock guard(first, second);
            ++guarded;
        }
    };
    {
        Caller one([&] { count(this->lock, other); });
        Caller two([&] { count(other, this->lock); });
    }
    EXPECT_EQ(2000, guarded);
}

TYPED_TEST(StandardLocks, WaitOnAConditionOfTheStandardReleasesTheLock)
{
    std::condition_variable_any changed;
    bool isSet = false;
    Caller waiter([&] {
        std::unique_lock guard(this->lock);
        changed.wait(guard, [&] { return isSet; });
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    {
        const std::lock_guard guard(this->lock);
        isSet = true;
    }
    changed.notify_all();
    waiter.join();
}

TYPED_TEST(StandardLocks, UnlockOfAFreeLockThrows)
{
    EXPECT_THROW(this->lock.unlock(), system_error);
}

TEST(StandardLocksOfTheInterface, StandardGuardsLockAnyMutexOps)
{
    const SysMutex mutex;
    const MutexOps& ops = mutex;
    const std::lock_guard guard(ops);
    EXPECT_FALSE(mutex.request());
}

TEST(StandardLocksOfReaders, SharedLocksHoldTheLockTogether)
{
    const ReaderWriterLock lock;
    const std::shared_lock first(lock);
    const std::shared_lock second(lock, std::try_to_lock);
    EXPECT_TRUE(second.owns_lock());
    EXPECT_FALSE(lock.try_lock());
}

TEST(StandardLocksOfReaders, SharedLockExcludesAWriterUntilItsScopeEnds)
{
    const ReaderWriterLock lock;
    {
        const std::shared_lock guard(lock);
        EXPECT_FALSE(lock.try_lock());
    }
    EXPECT_TRUE(lock.try_lock());
    EXPECT_FALSE(lock.try_lock_shared());
    lock.unlock();
    EXPECT_TRUE(lock.try_lock_shared());
    lock.unlock_shared();
}

TEST(StandardLocksOfReaders, TryLockSharedFailsWhileAWriterWaits)
{
    const ReaderWriterLock lock;
    lock.lock_shared();
    Caller writer([&] { const std::lock_guard guard(lock); });
    EXPECT_TRUE(writer.awaitAsleep());
    EXPECT_FALSE(lock.try_lock_shared());
    lock.unlock_shared();
    writer.join();
    EXPECT_TRUE(lock.try_lock_shared());
    lock.unlock_shared();
}

TEST(StandardLocksOfReaders, ScopedLockExcludesReadersAndWriters)
{
    ReaderWriterLock lock;
    long guarded = 0;
    long copy = 0;
    {
        const auto write = [&] {
            for (int i = 0; i < 1000; ++i) {
                const std::scoped_lock guard(lock);
                ++guarded;
                ++copy;
            }
        };
        Caller one(write);
        Caller two(write);
        Caller reader([&] {
            for (int i = 0; i < 1000; ++i) {
                const std::shared_lock guard(lock);
                EXPECT_EQ(guarded, copy);
            }
        });
    }
    EXPECT_EQ(2000, guarded);
}

// Programs rely on it: the holder takes over what acquire() returns.
TEST(MutexHolderOfALock, DoesNotLock)
{
    CriticalSection section;
    section.acquire();
    {
        const MutexHolder<CriticalSection> holder(section);
    }
    EXPECT_TRUE(section.try_lock()) << "it released what the caller had acquired";
    section.unlock();

    MutexHolder<CriticalSection> holder(section);
    EXPECT_TRUE(section.try_lock());
    EXPECT_EQ(&section, holder.release(true));
    EXPECT_TRUE(section.try_lock());
    section.unlock();
}

static_assert(noexcept(std::declval<CriticalSection&>().try_lock()));

}
