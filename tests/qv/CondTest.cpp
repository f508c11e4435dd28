#include <qv/pmx/cond.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <ctime>

#include <support/Sanitizers.hpp>

#include "Threads.hpp"

namespace {

static_assert(offsetof(si_cond_t, cond) == 0, "callers signal its first member");

class Cond : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(qv_si_mutex_init(&mutex, nullptr), 0);
        ASSERT_EQ(qv_si_cond_init(&cond, nullptr), 0);
    }
    void TearDown() override
    {
        EXPECT_EQ(pthread_cond_destroy(&cond.cond), 0);
        EXPECT_EQ(qv_si_mutex_destroy(&mutex), 0);
    }

    si_mutex_t mutex;
    si_cond_t cond;
};

TEST_F(Cond, WaitReleasesTheMutexAndReacquiresIt)
{
    bool isReady = false;
    bool hasSeen = false;
    qvtest::Caller waiter([&] {
        qv_si_mutex_lock(&mutex);
        while (!isReady) {
            if (qv_si_cond_wait(&cond, &mutex) != 0) {
                break;
            }
        }
        hasSeen = isReady && qv_si_mutex_trylock(&mutex) == 16;
        qv_si_mutex_unlock(&mutex);
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    ASSERT_EQ(qv_si_mutex_lock(&mutex), 0);
    isReady = true;
    // The POSIX functions may be called on the record itself.
    EXPECT_EQ(pthread_cond_signal(reinterpret_cast<pthread_cond_t*>(&cond)), 0);
    ASSERT_EQ(qv_si_mutex_unlock(&mutex), 0);
    waiter.join();
    EXPECT_TRUE(hasSeen);
}

TEST_F(Cond, WaitFailsIfTheCallerDoesNotHoldTheMutex)
{
    EXPECT_EQ(qv_si_cond_wait(&cond, &mutex), 1);
}

TEST_F(Cond, MutexCannotBeDestroyedDuringAWait)
{
    if (support::UNDER_THREAD_SANITIZER) {
        GTEST_SKIP() << "the thread sanitizer regards the mutex as destroyed although the call fails";
    }
    bool isReady = false;
    qvtest::Caller waiter([&] {
        qv_si_mutex_lock(&mutex);
        while (!isReady) {
            qv_si_cond_wait(&cond, &mutex);
        }
        qv_si_mutex_unlock(&mutex);
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    EXPECT_EQ(qv_si_mutex_destroy(&mutex), 16);
    ASSERT_EQ(qv_si_mutex_lock(&mutex), 0);
    isReady = true;
    EXPECT_EQ(pthread_cond_broadcast(&cond.cond), 0);
    ASSERT_EQ(qv_si_mutex_unlock(&mutex), 0);
}

TEST_F(Cond, DeadlineIsOnTheMonotonicClock)
{
    timespec now;
    ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    const timespec limit = {now.tv_sec + 3600, 0};
    // An hour in the future on the monotonic clock, long past on the wall clock: only a signal ends the wait.
    bool isReady = false;
    int status = -1;
    qvtest::Caller waiter([&] {
        qv_si_mutex_lock(&mutex);
        status = 0;
        while (!isReady && status == 0) {
            status = pthread_cond_timedwait(&cond.cond, &mutex.mutex, &limit);
        }
        qv_si_mutex_unlock(&mutex);
    });
    EXPECT_TRUE(waiter.awaitAsleep());
    ASSERT_EQ(qv_si_mutex_lock(&mutex), 0);
    isReady = true;
    EXPECT_EQ(pthread_cond_signal(&cond.cond), 0);
    ASSERT_EQ(qv_si_mutex_unlock(&mutex), 0);
    waiter.join();
    EXPECT_EQ(status, 0);
}

TEST(CondInit, FailsIfAttributesAreNotNull)
{
    si_cond_t cond;
    EXPECT_EQ(qv_si_cond_init(&cond, "R"), 22);
}

}
