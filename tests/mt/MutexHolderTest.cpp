#include <dalnim/mt/MutexHolder.hpp>

#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

namespace {

using com::kor::dal::nim::mt::CriticalSection;
using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::mt::MutexOps;
using com::kor::dal::nim::mt::SysMutex;
using com::kor::dal::nim::sys::system_error;

/** A lock that records how it was released; it has only the operations that a holder needs. */
class Lock
{
public:
    const Lock& acquire() const
    {
        ++held;
        return *this;
    }
    void release() const
    {
        ++throwing;
        if (refusing) {
            throw system_error(1, "refused");
        }
        --held;
    }
    bool release(const std::nothrow_t&) const
    {
        ++silent;
        if (refusing) {
            return false;
        }
        --held;
        return true;
    }

    bool refusing = false;
    mutable int held = 0;
    mutable int throwing = 0;
    mutable int silent = 0;
};

typedef MutexHolder<Lock> Holder;

static_assert(sizeof(Holder) == sizeof(void*));
static_assert(std::is_nothrow_default_constructible_v<Holder>);
static_assert(std::is_constructible_v<Holder, const Lock&>);
static_assert(std::is_constructible_v<Holder, Holder&>, "copies hand over");
static_assert(!std::is_constructible_v<Holder, const Holder&>, "a const holder gives nothing away");
static_assert(std::is_assignable_v<Holder&, Holder&>);
static_assert(!std::is_assignable_v<Holder&, const Holder&>);
static_assert(std::is_move_constructible_v<Holder>, "functions return one");
static_assert(std::is_nothrow_destructible_v<Holder>);
static_assert(std::is_same_v<const Lock*, decltype(std::declval<Holder&>().release(true))>);
static_assert(
    std::is_same_v<const Lock*, decltype(std::declval<Holder&>().reset(std::declval<const Lock&>(), true))>);

class MutexHolderTest : public testing::Test
{
protected:
    Lock lock;
    Lock other;
};

TEST_F(MutexHolderTest, IsEmptyByDefault)
{
    Holder holder;
    EXPECT_EQ(nullptr, holder.release(true));
    EXPECT_EQ(nullptr, holder.release(false));
}

TEST_F(MutexHolderTest, NeverAcquires)
{
    {
        Holder holder(lock);
        EXPECT_EQ(0, lock.held);
    }
    EXPECT_EQ(-1, lock.held);
}

TEST_F(MutexHolderTest, DestructorReleasesTheLock)
{
    {
        const Holder holder(lock.acquire());
        EXPECT_EQ(1, lock.held);
    }
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.silent);
    EXPECT_EQ(0, lock.throwing);
}

TEST_F(MutexHolderTest, DestructorIgnoresAFailedRelease)
{
    lock.refusing = true;
    {
        const Holder holder(lock.acquire());
    }
    EXPECT_EQ(1, lock.silent);
    EXPECT_EQ(1, lock.held);
}

TEST_F(MutexHolderTest, CopyTransfersTheLock)
{
    Holder holder(lock.acquire());
    {
        Holder copy(holder);
        EXPECT_EQ(nullptr, holder.release(true));
        EXPECT_EQ(1, lock.held);
    }
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.silent);
}

TEST_F(MutexHolderTest, AssignmentReleasesTheOldLock)
{
    Holder holder(lock.acquire());
    {
        Holder source(other.acquire());
        EXPECT_EQ(&holder, &(holder = source));
        EXPECT_EQ(0, lock.held);
        EXPECT_EQ(1, lock.throwing);
        EXPECT_EQ(1, other.held);
    }
    EXPECT_EQ(1, other.held) << "the source is empty";
    EXPECT_EQ(&other, holder.release(true));
    EXPECT_EQ(0, other.held);
}

TEST_F(MutexHolderTest, AssignmentOfAnEmptyHolderReleases)
{
    Holder holder(lock.acquire());
    Holder empty;
    holder = empty;
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(nullptr, holder.release(true));
    empty = holder;
    EXPECT_EQ(1, lock.throwing);
}

TEST_F(MutexHolderTest, AssignmentToItselfReleasesAndEmpties)
{
    Holder holder(lock.acquire());
    Holder& same = holder;
    holder = same;
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.throwing);
    EXPECT_EQ(nullptr, holder.release(true));
}

TEST_F(MutexHolderTest, AssignmentOfALockReleasesTheOldOne)
{
    Holder holder(lock.acquire());
    EXPECT_EQ(&holder, &(holder = other.acquire()));
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.throwing);
    EXPECT_EQ(&other, holder.release(false));
    holder = lock.acquire();
    EXPECT_EQ(1, lock.held);
    EXPECT_EQ(1, lock.throwing);
}

TEST_F(MutexHolderTest, ReleaseReturnsTheLockUnlocked)
{
    Holder holder(lock.acquire());
    EXPECT_EQ(&lock, holder.release(true));
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.throwing);
    EXPECT_EQ(nullptr, holder.release(true));
    EXPECT_EQ(1, lock.throwing);
}

TEST_F(MutexHolderTest, ReleaseUnlocksByDefault)
{
    Holder holder(lock.acquire());
    EXPECT_EQ(&lock, holder.release());
    EXPECT_EQ(0, lock.held);
    holder.reset(lock.acquire());
    holder.reset(other.acquire());
    EXPECT_EQ(0, lock.held);
}

TEST_F(MutexHolderTest, ReleaseWithFalseReturnsTheLockLocked)
{
    {
        Holder holder(lock.acquire());
        EXPECT_EQ(&lock, holder.release(false));
    }
    EXPECT_EQ(1, lock.held);
    EXPECT_EQ(0, lock.throwing + lock.silent);
}

TEST_F(MutexHolderTest, ResetReturnsTheOldLockUnlocked)
{
    Holder holder(lock.acquire());
    EXPECT_EQ(&lock, holder.reset(other.acquire(), true));
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.throwing);
    EXPECT_EQ(1, other.held);
    EXPECT_EQ(&other, holder.release(true));
}

TEST_F(MutexHolderTest, ResetWithFalseReturnsTheOldLockLocked)
{
    Holder holder(lock.acquire());
    EXPECT_EQ(&lock, holder.reset(other.acquire(), false));
    EXPECT_EQ(1, lock.held);
    EXPECT_EQ(0, lock.throwing);
    EXPECT_EQ(&other, holder.release(true));
}

TEST_F(MutexHolderTest, ResetOfAnEmptyHolderReturnsNull)
{
    Holder holder;
    EXPECT_EQ(nullptr, holder.reset(lock.acquire(), true));
    EXPECT_EQ(1, lock.held);
    EXPECT_EQ(&lock, holder.release(true));
}

// If releasing a lock fails, it is still held.

class RefusingLock : public MutexHolderTest
{
protected:
    Holder holder{lock.acquire()};
    Holder source{other.acquire()};

    void SetUp() override
    {
        lock.refusing = true;
    }
    void TearDown() override
    {
        EXPECT_EQ(1, lock.held);
        EXPECT_EQ(1, other.held);
        EXPECT_EQ(&lock, holder.release(false));
        EXPECT_EQ(&other, source.release(true));
    }
};

TEST_F(RefusingLock, FailedAssignmentKeepsTheLock)
{
    EXPECT_THROW(holder = source, system_error);
    EXPECT_THROW(holder = std::move(source), system_error);
    EXPECT_THROW(holder = other, system_error);
    Holder& same = holder;
    EXPECT_THROW(holder = same, system_error);
}

TEST_F(RefusingLock, FailedReleaseKeepsTheLock)
{
    EXPECT_THROW(holder.release(true), system_error);
    EXPECT_THROW(holder.release(), system_error);
}

TEST_F(RefusingLock, FailedResetKeepsTheLock)
{
    EXPECT_THROW(holder.reset(other, true), system_error);
}

Holder handedThrough(Holder holder)
{
    return holder;
}

TEST_F(MutexHolderTest, CanBePassedAndReturned)
{
    {
        Holder first(lock.acquire());
        Holder second = handedThrough(first);
        EXPECT_EQ(1, lock.held);
        EXPECT_EQ(nullptr, first.release(true));
        first = handedThrough(second);
        EXPECT_EQ(1, lock.held);
        EXPECT_EQ(nullptr, second.release(true));
        Holder third(std::move(first));
        EXPECT_EQ(nullptr, first.release(true));
        EXPECT_EQ(1, lock.held);
    }
    EXPECT_EQ(0, lock.held);
    EXPECT_EQ(1, lock.silent);
    EXPECT_EQ(0, lock.throwing);
}

TEST(MutexHolder, OwnsEachKindOfLock)
{
    const SysMutex mutex;
    const CriticalSection section(false);
    const auto areFree = [&] {
        bool free = false;
        std::thread([&] {
            free = mutex.request() && mutex.release(std::nothrow) && section.request()
                   && section.release(std::nothrow);
        }).join();
        return free;
    };
    {
        const MutexHolder<MutexOps> mutexHolder(mutex.acquire());
        const MutexHolder<CriticalSection> sectionHolder(section.acquire());
        EXPECT_FALSE(areFree());
    }
    EXPECT_TRUE(areFree());

    MutexHolder<CriticalSection> holder(section);
    try {
        holder.release();
        FAIL() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(1, error.error());
    }
}

}
