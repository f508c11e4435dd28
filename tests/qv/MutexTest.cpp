#include <qv/pmx/mutex.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Threads.hpp"

namespace {

template <class Call>
qv_err_t onOtherThread(Call call)
{
    qv_err_t status = -1;
    std::thread([&] { status = call(); }).join();
    return status;
}

class Mutex : public testing::TestWithParam<const char*>
{};

TEST_P(Mutex, TrylockFailsWhileAnotherThreadHoldsIt)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, GetParam()), 0);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 0);
    EXPECT_EQ(onOtherThread([&] { return qv_si_mutex_trylock(&mutex); }), 16);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(onOtherThread([&] {
                  const qv_err_t status = qv_si_mutex_trylock(&mutex);
                  qv_si_mutex_unlock(&mutex);
                  return status;
              }),
              0);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

TEST_P(Mutex, UnlockFailsIfTheCallerDoesNotHoldIt)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, GetParam()), 0);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 1);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 0);
    EXPECT_EQ(onOtherThread([&] { return qv_si_mutex_unlock(&mutex); }), 1);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

TEST_P(Mutex, DestroyFailsWhileItIsLocked)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, GetParam()), 0);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 16);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

TEST_P(Mutex, LockWaitsForTheHolder)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, GetParam()), 0);
    ASSERT_EQ(qv_si_mutex_lock(&mutex), 0);
    qv_err_t status = -1;
    qvtest::Caller other([&] {
        status = qv_si_mutex_lock(&mutex);
        qv_si_mutex_unlock(&mutex);
    });
    EXPECT_TRUE(other.awaitAsleep());
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    other.join();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

INSTANTIATE_TEST_SUITE_P(Attributes, Mutex, testing::Values(nullptr, "r", "R"));

class PlainMutex : public testing::TestWithParam<const char*>
{};

TEST_P(PlainMutex, SecondLockOfOneThreadFails)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, GetParam()), 0);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 35);
    EXPECT_EQ(qv_si_mutex_trylock(&mutex), 16);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 1);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

INSTANTIATE_TEST_SUITE_P(Attributes, PlainMutex, testing::Values(nullptr, "r"));

TEST(RecursiveMutex, IsReleasedByTheLastUnlock)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, "R"), 0);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_lock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_trylock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(onOtherThread([&] { return qv_si_mutex_trylock(&mutex); }), 16);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 0);
    EXPECT_EQ(qv_si_mutex_unlock(&mutex), 1);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

TEST(MutexInit, FailsIfAttributesAreUnknown)
{
    si_mutex_t mutex;
    EXPECT_EQ(qv_si_mutex_init(&mutex, "x"), 22);
    EXPECT_EQ(qv_si_mutex_init(&mutex, ""), 22);
    EXPECT_EQ(qv_si_mutex_init(&mutex, "Rr"), 22);
}

TEST(MutexLock, ExcludesOtherThreads)
{
    si_mutex_t mutex;
    ASSERT_EQ(qv_si_mutex_init(&mutex, nullptr), 0);
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 2000; ++k) {
                qv_si_mutex_lock(&mutex);
                ++counter;
                qv_si_mutex_unlock(&mutex);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 8000);
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
}

}
