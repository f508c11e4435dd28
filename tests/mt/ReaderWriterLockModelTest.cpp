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

/** What the threads see of each other. */
struct Room
{
    void enterAsReader()
    {
        ++readers;
        outsiders += writers;
    }
    void leaveAsReader()
    {
        const long before = plain;
        if (before % 64 == 0) {
            std::this_thread::yield();
        }
        outsiders += writers;
        changes += plain != before;
        --readers;
    }
    void enterAsWriter()
    {
        outsiders += writers++;
        outsiders += readers;
        // Without the lock, two of these lose one.
        plain = plain + 1;
        ++writes;
    }

    std::atomic<int> readers{0};
    std::atomic<int> writers{0};
    /** How many were met who must not be there, and how often something was written under a reader. */
    std::atomic<int> outsiders{0};
    std::atomic<int> changes{0};
    std::atomic<long> writes{0};
    long plain = 0;
};

void upgradeOrStartAgain(const ReaderWriterLock& lock, Room& room)
{
    Holder holder(lock.acquireForRead());
    room.enterAsReader();
    const long before = room.plain;
    --room.readers;
    try {
        lock.upgradeToWrite();
        EXPECT_EQ(before, room.plain) << "somebody wrote during the upgrade";
    } catch (const system_error& error) {
        EXPECT_EQ(16, error.error());
        holder.release();
        holder = lock.acquireForWrite();
    }
    room.enterAsWriter();
    --room.writers;
}

void visit(const ReaderWriterLock& lock, Room& room, unsigned int choice)
{
    if (choice < 7) {
        const Holder holder(lock.acquireForRead());
        room.enterAsReader();
        room.leaveAsReader();
    } else if (choice < 9) {
        const Holder holder(lock.acquireForWrite());
        room.enterAsWriter();
        --room.writers;
    } else {
        upgradeOrStartAgain(lock, room);
    }
}

TEST(ReaderWriterLockModel, WriterExcludesReadersAndWriters)
{
    constexpr int THREADS = 4;
    const int visits = mttest::modelOperations() / THREADS;
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    const ReaderWriterLock lock;
    Room room;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            std::mt19937 random = seed.random(thread);
            for (int i = 0; i < visits; ++i) {
                visit(lock, room, static_cast<unsigned int>(random() % 10));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, room.outsiders);
    EXPECT_EQ(0, room.changes);
    EXPECT_GT(room.plain, 0);
    EXPECT_EQ(room.writes, room.plain);
    EXPECT_FALSE(lock.release(std::nothrow)) << "it is free";
}

}
