#include <qv/rtlapi/RX_RWLock.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <typeinfo>

#include <malloc.h>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>

#include <support/Sanitizers.hpp>

#include "Threads.hpp"

namespace {

using qvtest::Caller;
using qvtest::Gate;

static_assert(!std::is_copy_constructible_v<RX_RWLock> && !std::is_nothrow_destructible_v<RX_RWLock>);
static_assert(std::has_virtual_destructor_v<RX_RWLock>);

TEST(RXRWLock, ReadersShareAndWritersExclude)
{
    const RX_RWLock lock;
    lock.rdlock();
    Caller reader([&] {
        lock.rdlock();
        lock.unlock();
    });
    reader.join();
    Caller writer([&] {
        lock.wrlock();
        lock.unlock();
    });
    EXPECT_TRUE(writer.awaitAsleep());
    lock.unlock();
}

TEST(RXRWLock, UpgradesTheSoleReader)
{
    const RX_RWLock lock;
    lock.rdlock();
    lock.upgrade();
    Caller reader([&] {
        lock.rdlock();
        lock.unlock();
    });
    EXPECT_TRUE(reader.awaitAsleep());
    lock.unlock();
}

TEST(RXRWLock, UpgradeThrowsAWarningIfThereAreOtherReaders)
{
    const RX_RWLock lock;
    Gate isHeld;
    Gate mayLeave;
    Caller other([&] {
        lock.rdlock();
        isHeld.open();
        mayLeave.pass();
        lock.unlock();
    });
    isHeld.pass();
    lock.rdlock();
    try {
        lock.upgrade();
        ADD_FAILURE();
    } catch (const RX_ExError& exception) {
        EXPECT_EQ(typeid(exception), typeid(RX_ExWarning));
        EXPECT_EQ(exception.getCode(), 16);
        EXPECT_EQ(exception.getArgument(0), "");
    }
    mayLeave.open();
    other.join();
    lock.upgrade();
    lock.unlock();
}

TEST(RXRWLock, UpgradeAndUnlockThrowIfNotHeld)
{
    const RX_RWLock lock;
    try {
        lock.upgrade();
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(RX_ExFatal));
        EXPECT_EQ(exception.getCode(), 1);
    }
    EXPECT_THROW(lock.unlock(), RX_Exception);
}

TEST(RXRWLock, DestructorThrowsIfHeld)
{
    RX_RWLock* const lock = new RX_RWLock;
    lock->rdlock();
    try {
        delete lock;
        ADD_FAILURE();
    } catch (const RX_Exception& exception) {
        EXPECT_EQ(exception.getCode(), 16);
    }
}

TEST(RXRWLock, DestructorThatThrowsLeaksNoMemory)
{
    if (support::UNDER_ADDRESS_SANITIZER || support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP()
            << "the allocators of sanitizers keep no count; the address sanitizer finds the leak itself";
    }
    constexpr std::size_t LOCKS = 1000;
    const auto destroyHeld = [] {
        for (std::size_t i = 0; i < LOCKS; ++i) {
            auto* const lock = new RX_RWLock;
            i % 2 == 0 ? lock->rdlock() : lock->wrlock();
            EXPECT_THROW(delete lock, RX_Exception);
        }
    };
    destroyHeld();
    const std::size_t before = mallinfo2().uordblks;
    destroyHeld();
    EXPECT_LT(mallinfo2().uordblks, before + LOCKS * 16);
}

TEST(RXRWLock, WaitingThreadsSurviveTheDestructionOfAHeldLock)
{
    alignas(RX_RWLock) char memory[sizeof(RX_RWLock)];
    RX_RWLock* const lock = new (memory) RX_RWLock;
    lock->rdlock();
    // The record is the last field; it is used to release the lock after the destructor has thrown.
    si_rwlock_t record;
    std::memcpy(&record, memory + sizeof memory - sizeof record, sizeof record);
    Caller writer([&] { EXPECT_EQ(qv_si_rw_wrlock(&record), 0); });
    ASSERT_TRUE(writer.awaitAsleep());
    EXPECT_THROW(lock->~RX_RWLock(), RX_Exception);
    EXPECT_EQ(qv_si_rw_unlock(&record), 0);
    writer.join();
    EXPECT_EQ(qv_si_rw_unlock(&record), 0);
    EXPECT_EQ(qv_si_rw_destroy(&record), 0);
}

TEST(RXRWLock, TryOperationsDoNotBlock)
{
    const RX_RWLock lock;
    EXPECT_EQ(lock.tryRdlock(), 1);
    EXPECT_EQ(lock.tryRdlock(), 1);
    EXPECT_EQ(lock.tryWrlock(), 0);
    lock.unlock();
    lock.unlock();
    EXPECT_EQ(lock.tryWrlock(), 1);
    EXPECT_EQ(lock.tryWrlock(), 0);
    EXPECT_EQ(lock.tryRdlock(), 0);
    lock.unlock();
}

}
