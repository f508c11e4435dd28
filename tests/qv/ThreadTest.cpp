#include <qv/pmx/thread.h>

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <qv/pmx/host.h>

namespace {

/** Runs `check` in a child process and returns its result. */
template <class Check>
bool holdsInChild(Check check)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(check() ? 0 : 1);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(ThreadSelf, IsTheThreadIDOfTheKernel)
{
    EXPECT_EQ(qv_si_thread_self(), gettid());
    EXPECT_EQ(qv_si_thread_self(), gettid());
}

TEST(ThreadSelf, DiffersBetweenThreads)
{
    ThreadID_t there = 0;
    pid_t expected = 0;
    std::thread([&] {
        there = qv_si_thread_self();
        expected = gettid();
    }).join();
    EXPECT_EQ(there, expected);
    EXPECT_NE(there, qv_si_thread_self());
}

TEST(ThreadSelf, IsUpdatedInTheChildOfAFork)
{
    const ThreadID_t parent = qv_si_thread_self();
    EXPECT_TRUE(holdsInChild([parent] {
        const ThreadID_t self = qv_si_thread_self();
        return self == gettid() && self == getpid() && self != parent;
    }));
    EXPECT_EQ(qv_si_thread_self(), parent);
}

TEST(ThreadSelf, IsUpdatedInTheChildOfAForkOnAnotherThread)
{
    std::thread([] {
        const ThreadID_t parent = qv_si_thread_self();
        EXPECT_TRUE(holdsInChild([parent] { return qv_si_thread_self() == gettid() && gettid() != parent; }));
        EXPECT_EQ(qv_si_thread_self(), gettid());
    }).join();
}

TEST(GetPid, IsUpdatedInTheChildOfAFork)
{
    EXPECT_EQ(qv_si_getpid(), getpid());
    const pid_t parent = qv_si_getpid();
    EXPECT_TRUE(holdsInChild([parent] { return qv_si_getpid() == getpid() && getppid() == parent; }));

    // A child process that the C library is not aware of.
    const auto child = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (child == 0) {
        _exit(qv_si_getpid() == static_cast<pid_t>(syscall(SYS_getpid)) ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

int destroyed = 0;
void* lastDestroyed = nullptr;

void countDestroyed(void* value)
{
    ++destroyed;
    lastDestroyed = value;
}

TEST(ThreadKey, HasOneValuePerThread)
{
    si_thread_key_t key;
    ASSERT_EQ(qv_si_thread_keycreate(&key, nullptr), 0);
    int here = 0;
    EXPECT_EQ(qv_si_thread_getspecific(key), nullptr);
    EXPECT_EQ(qv_si_thread_setspecific(key, &here), 0);
    EXPECT_EQ(qv_si_thread_getspecific(key), &here);
    std::thread([key] {
        int there = 0;
        EXPECT_EQ(qv_si_thread_getspecific(key), nullptr);
        EXPECT_EQ(qv_si_thread_setspecific(key, &there), 0);
        EXPECT_EQ(qv_si_thread_getspecific(key), &there);
    }).join();
    EXPECT_EQ(qv_si_thread_getspecific(key), &here);
    EXPECT_EQ(qv_si_thread_setspecific(key, nullptr), 0);
    EXPECT_EQ(qv_si_thread_getspecific(key), nullptr);
}

TEST(ThreadKey, DestructorRunsWhenTheThreadEnds)
{
    si_thread_key_t key;
    ASSERT_EQ(qv_si_thread_keycreate(&key, countDestroyed), 0);
    int value = 0;
    destroyed = 0;

    std::thread([&] { EXPECT_EQ(qv_si_thread_setspecific(key, &value), 0); }).join();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(lastDestroyed, &value);

    std::thread([&] {
        EXPECT_EQ(qv_si_thread_setspecific(key, &value), 0);
        EXPECT_EQ(qv_si_thread_setspecific(key, nullptr), 0);
    }).join();
    std::thread([] {}).join();
    EXPECT_EQ(destroyed, 1);
}

TEST(ThreadKey, SetSpecificFailsIfTheKeyWasNotCreated)
{
    EXPECT_EQ(qv_si_thread_setspecific(1000000, nullptr), 22);
    EXPECT_EQ(qv_si_thread_getspecific(1000000), nullptr);
}

}
