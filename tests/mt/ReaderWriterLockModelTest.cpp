#include <dalnim/mt/ReaderWriterLock.hpp>

#include <dalnim/mt/MutexHolder.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "Model.hpp"

namespace {

using com::kor::dal::nim::mt::MutexHolder;
using com::kor::dal::nim::mt::ReaderWriterLock;
using com::kor::dal::nim::sys::system_error;
using mttest::ModelSeed;

typedef MutexHolder<ReaderWriterLock> Holder;

/** The data that the lock guards, and the violations that the threads detect. */
struct GuardedData
{
    void enterAsReader()
    {
        ++readers;
        intruders += writers;
    }
    void leaveAsReader()
    {
        const long before = plain;
        if (before % 64 == 0) {
            std::this_thread::yield();
        }
        intruders += writers;
        changes += plain != before;
        --readers;
    }
    void enterAsWriter()
    {
        intruders += writers++;
        intruders += readers;
        // Not atomic: without the lock, concurrent increments are lost.
        plain = plain + 1;
        ++writes;
    }

    std::atomic<int> readers{0};
    std::atomic<int> writers{0};
    /** Number of threads that were found inside although the lock excludes them. */
    std::atomic<int> intruders{0};
    /** Number of writes while a reader held the lock. */
    std::atomic<int> changes{0};
    std::atomic<long> writes{0};
    long plain = 0;
};

/** Upgrades shared to exclusive access; if that fails, releases the lock and acquires it exclusively. */
void upgradeOrAcquire(const ReaderWriterLock& lock, GuardedData& data)
{
    Holder holder(lock.acquireForRead());
    data.enterAsReader();
    const long before = data.plain;
    --data.readers;
    try {
        lock.upgradeToWrite();
        EXPECT_EQ(before, data.plain) << "another thread wrote during the upgrade";
    } catch (const system_error& error) {
        EXPECT_EQ(16, error.error());
        holder.release();
        holder = lock.acquireForWrite();
    }
    data.enterAsWriter();
    --data.writers;
}

void useLock(const ReaderWriterLock& lock, GuardedData& data, unsigned int choice)
{
    if (choice < 7) {
        const Holder holder(lock.acquireForRead());
        data.enterAsReader();
        data.leaveAsReader();
    } else if (choice < 9) {
        const Holder holder(lock.acquireForWrite());
        data.enterAsWriter();
        --data.writers;
    } else {
        upgradeOrAcquire(lock, data);
    }
}

TEST(ReaderWriterLockModel, WriterExcludesReadersAndWriters)
{
    constexpr int THREADS = 4;
    const int accesses = mttest::modelOperations() / THREADS;
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    const ReaderWriterLock lock;
    GuardedData data;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            std::mt19937 random = seed.random(thread);
            for (int i = 0; i < accesses; ++i) {
                useLock(lock, data, static_cast<unsigned int>(random() % 10));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, data.intruders);
    EXPECT_EQ(0, data.changes);
    EXPECT_GT(data.plain, 0);
    EXPECT_EQ(data.writes, data.plain);
    EXPECT_FALSE(lock.release(std::nothrow)) << "it is free";
}

}
