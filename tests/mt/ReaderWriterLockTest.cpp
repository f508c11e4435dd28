#include <dalnim/mt/ReaderWriterLock.hpp>

#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <thread>
#include <type_traits>

#include <unistd.h>

#include <qv/Threads.hpp>

namespace {

using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::mt::ReaderWriterLock;
using com::kor::dal::nim::sys::system_error;
using qvtest::Caller;
using qvtest::Gate;

typedef MutexHolder<ReaderWriterLock> Holder;

static_assert(!std::is_polymorphic_v<ReaderWriterLock>);
static_assert(!std::is_copy_constructible_v<ReaderWriterLock>);
static_assert(!std::is_copy_assignable_v<ReaderWriterLock>);
static_assert(std::is_nothrow_destructible_v<ReaderWriterLock>);
static_assert(sizeof(ReaderWriterLock) == sizeof(void*));

class ReaderWriterLockTest : public testing::Test
{
protected:
    const ReaderWriterLock lock;
};

TEST_F(ReaderWriterLockTest, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ReaderWriterLock", ReaderWriterLock::CLASS_NAME);
}

TEST_F(ReaderWriterLockTest, AcquireReturnsTheLock)
{
    EXPECT_EQ(&lock, &lock.acquireForRead());
    EXPECT_EQ(&lock, &lock.upgradeToWrite());
    lock.release();
    EXPECT_EQ(&lock, &lock.acquireForWrite());
    EXPECT_TRUE(lock.release(std::nothrow));
}

TEST_F(ReaderWriterLockTest, WriterAcquiresAfterTheLastReader)
{
    lock.acquireForRead();
    Gate leave;
    Gate entered;
    Caller second([&] {
        const Holder holder(lock.acquireForRead());
        entered.open();
        leave.pass();
    });
    // Both threads hold it: this one has not released it.
    entered.pass();
    std::atomic<bool> written{false};
    Caller writer([&] {
        const Holder holder(lock.acquireForWrite());
        written = true;
    });
    EXPECT_TRUE(writer.awaitAsleep());
    leave.open();
    second.join();
    EXPECT_TRUE(writer.awaitAsleep()) << "one reader still holds it";
    EXPECT_FALSE(written);
    lock.release();
    writer.join();
    EXPECT_TRUE(written);
}

TEST_F(ReaderWriterLockTest, WriterExcludesReadersAndWritersUnderLoad)
{
    lock.acquireForWrite();
    Caller reader([this] { const Holder holder(lock.acquireForRead()); });
    Caller writer([this] { const Holder holder(lock.acquireForWrite()); });
    EXPECT_TRUE(reader.awaitAsleep());
    EXPECT_TRUE(writer.awaitAsleep());
    lock.release();
}

TEST_F(ReaderWriterLockTest, WaitingWriterBlocksNewReaders)
{
    lock.acquireForRead();
    Caller writer([this] { const Holder holder(lock.acquireForWrite()); });
    EXPECT_TRUE(writer.awaitAsleep());
    Caller reader([this] { const Holder holder(lock.acquireForRead()); });
    EXPECT_TRUE(reader.awaitAsleep());
    lock.release();
}

TEST_F(ReaderWriterLockTest, UpgradeSucceedsForTheOnlyReader)
{
    Holder holder(lock.acquireForRead());
    lock.upgradeToWrite();
    Caller reader([this] { const Holder other(lock.acquireForRead()); });
    EXPECT_TRUE(reader.awaitAsleep()) << "the access is exclusive";
    holder.release();
    reader.join();
}

TEST_F(ReaderWriterLockTest, UpgradeFailsIfThereIsAnotherReader)
{
    lock.acquireForRead();
    Gate entered;
    Gate leave;
    Caller second([&] {
        const Holder holder(lock.acquireForRead());
        entered.open();
        leave.pass();
    });
    entered.pass();
    try {
        lock.upgradeToWrite();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const system_error& error) {
        EXPECT_EQ(16, error.error());
        ASSERT_FALSE(error.trace().empty());
        EXPECT_EQ(0U, error.trace()[0].find("com.kor.dal.nim.mt.ReaderWriterLock.upgradeToWrite():"));
    }
    leave.open();
    second.join();
    // This thread still has shared access, and is the only one.
    Caller writer([this] { const Holder holder(lock.acquireForWrite()); });
    EXPECT_TRUE(writer.awaitAsleep());
    lock.release();
    writer.join();
    EXPECT_NO_THROW(lock.acquireForWrite());
    lock.release();
}

TEST_F(ReaderWriterLockTest, ReleaseWithoutAccessFails)
{
    EXPECT_FALSE(lock.release(std::nothrow));
    EXPECT_THROW(lock.release(), system_error);
    // The lock is unchanged.
    lock.acquireForWrite();
    lock.release();
    lock.acquireForRead();
    lock.upgradeToWrite();
    lock.release();
}

TEST_F(ReaderWriterLockTest, MisuseThrowsItsErrorNumber)
{
    const auto numberOf = [](auto call) {
        try {
            call();
        } catch (const system_error& error) {
            return error.error();
        }
        return 0;
    };
    EXPECT_EQ(1, numberOf([this] { lock.release(); }));
    EXPECT_EQ(1, numberOf([this] { lock.upgradeToWrite(); })) << "there is no shared access";
    lock.acquireForWrite();
    EXPECT_EQ(1, numberOf([this] { lock.upgradeToWrite(); }));
    lock.release();
}

TEST_F(ReaderWriterLockTest, MutexHolderWorksForBothKinds)
{
    Holder holder(lock.acquireForRead());
    holder.release();
    holder = lock.acquireForWrite();
    holder.release();
    EXPECT_FALSE(lock.release(std::nothrow)) << "it is free";
}

TEST(ReaderWriterLockDeathTest, DestroyingALockedLockIsIgnored)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            {
                const ReaderWriterLock lock;
                lock.acquireForRead();
            }
            _exit(7);
        },
        testing::ExitedWithCode(7), "^$");
}

}
