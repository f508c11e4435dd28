#include <qv/pmx/rwlock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <pthread.h>

#include "Threads.hpp"

namespace {

using qvtest::Caller;
using qvtest::Gate;

class RwLock : public testing::Test
{
protected:
    void SetUp() override
    {
        lock = qv_si_rwlock_empty_lock_extern;
        ASSERT_EQ(qv_si_rw_init(&lock, nullptr), 0);
    }
    void TearDown() override
    {
        EXPECT_EQ(qv_si_rw_destroy(&lock), 0);
    }

    si_rwlock_t lock;
};

TEST_F(RwLock, IsSharedByReaders)
{
    EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
    Caller other([this] {
        EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    other.join();
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, WriterExcludesReadersAndWriters)
{
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    Caller reader([this] {
        EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    Caller writer([this] {
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    EXPECT_TRUE(reader.awaitAsleep());
    EXPECT_TRUE(writer.awaitAsleep());
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, ReaderExcludesWriters)
{
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    Caller writer([this] {
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    EXPECT_TRUE(writer.awaitAsleep());
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, WaitingWriterBlocksNewReaders)
{
    std::atomic<int> order{0};
    int writerPosition = 0;
    int readerPosition = 0;
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    Caller writer([&] {
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        writerPosition = ++order;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    ASSERT_TRUE(writer.awaitAsleep());
    Caller reader([&] {
        EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
        readerPosition = ++order;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    ASSERT_TRUE(reader.awaitAsleep());
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    writer.join();
    reader.join();
    EXPECT_EQ(writerPosition, 1);
    EXPECT_EQ(readerPosition, 2);
}

TEST_F(RwLock, WaitingReadersPrecedeTheNextWriter)
{
    std::atomic<int> readers{0};
    int readersBeforeWriter = 0;
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    Caller writer([&] {
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        readersBeforeWriter = readers;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    ASSERT_TRUE(writer.awaitAsleep());
    const auto read = [&] {
        EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
        ++readers;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    };
    Caller first(read);
    Caller second(read);
    ASSERT_TRUE(first.awaitAsleep());
    ASSERT_TRUE(second.awaitAsleep());
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    writer.join();
    EXPECT_EQ(readersBeforeWriter, 2);
}

TEST_F(RwLock, WriterThatRelocksFollowsTheWaitingWriter)
{
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> hasWritten{false};
        ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
        Caller writer([&] {
            EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
            hasWritten = true;
            EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        });
        ASSERT_TRUE(writer.awaitAsleep());
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        EXPECT_TRUE(hasWritten) << "in round " << round;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    }
}

TEST_F(RwLock, ReaderThatRelocksAsWriterFollowsTheWaitingWriter)
{
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> hasWritten{false};
        ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
        Caller writer([&] {
            EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
            hasWritten = true;
            EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        });
        ASSERT_TRUE(writer.awaitAsleep());
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        EXPECT_TRUE(hasWritten) << "in round " << round;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    }
}

TEST_F(RwLock, BusyWritersDoNotStarveAnotherWriter)
{
    std::atomic<bool> isOver{false};
    std::atomic<long> written{0};
    const auto writeUntilOver = [&] {
        while (!isOver) {
            EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
            ++written;
            EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        }
    };
    {
        Caller first(writeUntilOver);
        Caller second(writeUntilOver);
        while (written < 1000) {
            std::this_thread::yield();
        }
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
            EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
            EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
            EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        }
        isOver = true;
    }
    EXPECT_EQ(qv_si_rw_unlock(&lock), 1) << "the lock is not free";
}

TEST_F(RwLock, WaitingWritersAcquireInTheOrderOfArrival)
{
    std::vector<int> order;
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    std::vector<std::unique_ptr<Caller>> writers;
    for (int number = 0; number < 6; ++number) {
        writers.push_back(std::make_unique<Caller>([this, &order, number] {
            EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
            order.push_back(number);
            EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
        }));
        ASSERT_TRUE(writers.back()->awaitAsleep());
    }
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    writers.clear();
    EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5}), order);
}

TEST_F(RwLock, TryLockFailsIfItWouldBlock)
{
    ASSERT_EQ(qv_si_rw_tryrdlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_tryrdlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_trywrlock(&lock), 16);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    Caller writer([this] {
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    ASSERT_TRUE(writer.awaitAsleep());
    EXPECT_EQ(qv_si_rw_tryrdlock(&lock), 16) << "although a writer waits";
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    writer.join();
    EXPECT_EQ(qv_si_rw_trywrlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_trywrlock(&lock), 16);
    EXPECT_EQ(qv_si_rw_tryrdlock(&lock), 16);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, OnlyReaderIsUpgraded)
{
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 0);
    Caller reader([this] {
        EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    EXPECT_TRUE(reader.awaitAsleep());
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, OnlyReaderIsUpgradedBeforeAWaitingWriter)
{
    int value = 0;
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    Caller writer([&] {
        EXPECT_EQ(qv_si_rw_wrlock(&lock), 0);
        EXPECT_EQ(value, 1);
        value = 2;
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    ASSERT_TRUE(writer.awaitAsleep());
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 0);
    EXPECT_TRUE(writer.awaitAsleep());
    value = 1;
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    writer.join();
    EXPECT_EQ(value, 2);
}

TEST_F(RwLock, UpgradeFailsIfThereAreOtherReaders)
{
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    Gate isHeld;
    Gate mayRelease;
    Caller other([&] {
        EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
        isHeld.open();
        mayRelease.pass();
        // Neither reader waits for the other.
        EXPECT_EQ(qv_si_rw_upgrade(&lock), 16);
        EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    });
    isHeld.pass();
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 16);
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 16);
    mayRelease.open();
    other.join();
    // This thread still has shared access, and is now the only reader.
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 1);
}

TEST_F(RwLock, UpgradeFailsWithoutSharedAccess)
{
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 1);
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 1);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, UnlockFailsIfNoThreadHoldsIt)
{
    EXPECT_EQ(qv_si_rw_unlock(&lock), 1);
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 1);
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 1);
}

TEST_F(RwLock, DestroyFailsWhileItIsHeld)
{
    ASSERT_EQ(qv_si_rw_rdlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_destroy(&lock), 16);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_destroy(&lock), 16);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, SecondInitFails)
{
    EXPECT_EQ(qv_si_rw_init(&lock, nullptr), 16);
    EXPECT_EQ(qv_si_rw_rdlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST_F(RwLock, WaitingThreadIsNotCancelled)
{
    ASSERT_EQ(qv_si_rw_wrlock(&lock), 0);
    qv_err_t status = -1;
    std::atomic<bool> hasReturned{false};
    pthread_t thread = {};
    Gate isKnown;
    Caller reader([&] {
        thread = pthread_self();
        isKnown.open();
        status = qv_si_rw_rdlock(&lock);
        qv_si_rw_unlock(&lock);
        // The cancellation request is still pending: it must not end the rest of this thread.
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
        hasReturned = true;
    });
    isKnown.pass();
    ASSERT_TRUE(reader.awaitAsleep());
    EXPECT_EQ(pthread_cancel(thread), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
    reader.join();
    EXPECT_TRUE(hasReturned);
    EXPECT_EQ(status, 0);
}

TEST_F(RwLock, WritersExcludeAllOtherThreads)
{
    // Synchronised only by the lock, so that the thread sanitizer checks it too.
    int value = 0;
    int copy = 0;
    std::atomic<int> upgrades{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int k = 0; k < 2000; ++k) {
                if ((k + i) % 4 == 0) {
                    qv_si_rw_wrlock(&lock);
                    ++value;
                    ++copy;
                } else {
                    qv_si_rw_rdlock(&lock);
                    if ((k + i) % 8 == 1 && qv_si_rw_upgrade(&lock) == 0) {
                        ++value;
                        ++copy;
                        ++upgrades;
                    }
                    EXPECT_EQ(value, copy);
                }
                qv_si_rw_unlock(&lock);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(value, 2000 + upgrades);
}

TEST_F(RwLock, IsFreeAfterReadersThatFailedBecauseOfWriters)
{
    // A reader that meets a writer may be counted for a moment.
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int k = 0; k < 5000; ++k) {
                const qv_err_t status = i < 2        ? qv_si_rw_tryrdlock(&lock)
                                        : k % 8 != 0 ? qv_si_rw_trywrlock(&lock)
                                                     : qv_si_rw_wrlock(&lock);
                if (status == 0) {
                    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
                } else {
                    EXPECT_EQ(status, 16);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(qv_si_rw_unlock(&lock), 1);
    EXPECT_EQ(qv_si_rw_trywrlock(&lock), 0);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 0);
}

TEST(RwLockLifetime, CanBeDestroyedByTheLastThreadThatUnlocks)
{
    // The last thread destroys the lock immediately after it has released it.
    for (int round = 0; round < 500; ++round) {
        si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;
        ASSERT_EQ(qv_si_rw_init(&lock, nullptr), 0);
        int left = 2;
        const auto release = [&] {
            qv_si_rw_wrlock(&lock);
            const bool isLast = --left == 0;
            qv_si_rw_unlock(&lock);
            if (isLast) {
                EXPECT_EQ(qv_si_rw_destroy(&lock), 0);
            }
        };
        std::thread other(release);
        release();
        other.join();
    }
}

TEST(RwLockUninitialized, HasTheDocumentedRecord)
{
    EXPECT_EQ(qv_si_rwlock_empty_lock_extern.val, nullptr);
    EXPECT_EQ(qv_si_rwlock_empty_lock_extern.magic, 0);
}

TEST(RwLockUninitialized, AllOperationsFail)
{
    si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;
    EXPECT_EQ(qv_si_rw_rdlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_wrlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_tryrdlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_trywrlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 22);
    EXPECT_EQ(qv_si_rw_destroy(&lock), 22);
    EXPECT_EQ(qv_si_rw_rdlock(nullptr), 22);
}

TEST(RwLockUninitialized, IsTheStateAfterDestroy)
{
    si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;
    ASSERT_EQ(qv_si_rw_init(&lock, nullptr), 0);
    ASSERT_EQ(qv_si_rw_destroy(&lock), 0);
    EXPECT_EQ(qv_si_rw_rdlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_wrlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_unlock(&lock), 22);
    EXPECT_EQ(qv_si_rw_upgrade(&lock), 22);
    EXPECT_EQ(qv_si_rw_destroy(&lock), 22);
    ASSERT_EQ(qv_si_rw_init(&lock, nullptr), 0);
    EXPECT_EQ(qv_si_rw_destroy(&lock), 0);
}

TEST(RwLockUninitialized, InitFailsIfAttributesAreNotNull)
{
    si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;
    EXPECT_EQ(qv_si_rw_init(&lock, "R"), 22);
    EXPECT_EQ(qv_si_rw_init(nullptr, nullptr), 22);
}

}
