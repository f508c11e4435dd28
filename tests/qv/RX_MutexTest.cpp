#include <qv/rtlapi/RX_Mutex.hpp>

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

#include <qv/rtlapi/RX_Locked_.hpp>
#include <qv/rtlapi/RX_NullMutex.hpp>

#include "Threads.hpp"

namespace {

static_assert(!std::is_copy_constructible_v<RX_Mutex> && !std::is_copy_assignable_v<RX_Mutex>);
static_assert(!std::is_nothrow_destructible_v<RX_Mutex> && std::has_virtual_destructor_v<RX_Mutex>);
static_assert(!std::is_copy_constructible_v<RX_Locked_> && !std::is_copy_assignable_v<RX_Locked_>);
static_assert(!std::is_nothrow_destructible_v<RX_Locked_>);

template <class Call>
int codeOf(Call call)
{
    try {
        call();
        return 0;
    } catch (const RX_Exception& exception) {
        return exception.getCode();
    }
}

/** Returns true if another thread can lock the mutex now. */
bool isFree(const RX_Mutex& mutex)
{
    qv_bool_t wasFree = -1;
    std::thread([&] {
        wasFree = mutex.tryLock();
        if (wasFree) {
            mutex.unlock();
        }
    }).join();
    return wasFree == 1;
}

TEST(RXMutex, IsHeldByOneThread)
{
    const RX_Mutex mutex;
    EXPECT_TRUE(isFree(mutex));
    mutex.lock();
    EXPECT_FALSE(isFree(mutex));
    EXPECT_EQ(mutex.tryLock(), 0);
    mutex.unlock();
    EXPECT_EQ(mutex.tryLock(), 1);
    EXPECT_FALSE(isFree(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(RXMutex, ThrowsWhenTheSystemCallFails)
{
    const RX_Mutex mutex;
    EXPECT_EQ(codeOf([&] { mutex.unlock(); }), 1);
    mutex.lock();
    EXPECT_EQ(codeOf([&] { mutex.lock(); }), 35);
    mutex.unlock();
}

TEST(RXMutex, DestructorThrowsIfLocked)
{
    EXPECT_EQ(codeOf([] {
                  const RX_Mutex mutex;
                  mutex.lock();
              }),
              16);
}

TEST(RXMutex, DestructorThrowsIfADerivedMutexIsLocked)
{
    struct Derived : RX_Mutex
    {};
    EXPECT_EQ(codeOf([] {
                  Derived* const derived = new Derived;
                  derived->lock();
                  const RX_Mutex* const base = derived;
                  delete base;
              }),
              16);
}

TEST(RXNullMutex, DoesNothing)
{
    const RX_NullMutex mutex;
    mutex.lock();
    EXPECT_EQ(mutex.tryLock(), 1);
    mutex.unlock();
}

TEST(RXLocked, LocksForItsScope)
{
    const RX_Mutex mutex;
    {
        const RX_Locked_ locked(mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
    {
        const RX_Locked_ locked(&mutex);
        EXPECT_FALSE(isFree(mutex));
    }
    EXPECT_TRUE(isFree(mutex));
}

TEST(RXLocked, LocksNothingOfANullMutex)
{
    const RX_NullMutex mutex;
    const RX_Locked_ byReference(mutex);
    const RX_Locked_ byPointer(&mutex);
}

TEST(RXLocked, DestructorThrowsIfUnlockFails)
{
    const RX_Mutex mutex;
    EXPECT_EQ(codeOf([&] {
                  const RX_Locked_ locked(mutex);
                  mutex.unlock();
              }),
              1);
}

TEST(RXLocked, FailedConstructorDoesNotUnlock)
{
    const RX_Mutex mutex;
    const RX_Locked_ locked(mutex);
    EXPECT_EQ(codeOf([&] { const RX_Locked_ again(mutex); }), 35);
    EXPECT_FALSE(isFree(mutex));
}

TEST(RXLocked, UnlocksDuringStackUnwinding)
{
    const RX_Mutex mutex;
    EXPECT_THROW(
        {
            const RX_Locked_ locked(mutex);
            throw 5;
        },
        int);
    EXPECT_TRUE(isFree(mutex));
}

}
