// The lock of an RX_ActivityRecorder with threads that are stopped at its system calls: this program replaces
// three functions of the C library.

#include <qv/rtlapi/RX_ActivityRecorder.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>

#include <qv/rtlapi/RX_AbsTime.hpp>
#include <qv/rtlapi/RX_RelTime.hpp>

#include "Threads.hpp"

namespace {

/** What the calling thread does before its next call; a hook is called once. */
struct Hooks
{
    std::function<void()> mutexLock;
    std::function<void()> broadcast;
    /** Called in place of a wait, which then returns the result. */
    std::function<int()> timedWait;
};
thread_local Hooks* hooks = nullptr;

template <class Result>
std::function<Result()> takeHook(std::function<Result()> Hooks::*hook)
{
    return hooks != nullptr ? std::exchange(hooks->*hook, nullptr) : nullptr;
}

/** Returns the function that this program's one hides. Without a guard, which the thread sanitizer replaces.
 */
template <class Function>
Function* next(std::atomic<void*>& known, const char* name)
{
    void* found = known.load(std::memory_order_relaxed);
    if (found == nullptr) {
        found = dlsym(RTLD_NEXT, name);
        known.store(found, std::memory_order_relaxed);
    }
    return reinterpret_cast<Function*>(found);
}

std::atomic<void*> next_mutex_lock{nullptr};
std::atomic<void*> next_broadcast{nullptr};
std::atomic<void*> next_timed_wait{nullptr};

RX_AbsTime now()
{
    return RX_AbsTime(RX_RelTime(0, 0));
}

}

extern "C" __attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    if (const auto hook = takeHook(&Hooks::mutexLock)) {
        hook();
    }
    return next<int(pthread_mutex_t*)>(next_mutex_lock, "pthread_mutex_lock")(mutex);
}

extern "C" __attribute__((visibility("default"))) int pthread_cond_broadcast(pthread_cond_t* cond) noexcept
{
    if (const auto hook = takeHook(&Hooks::broadcast)) {
        hook();
    }
    return next<int(pthread_cond_t*)>(next_broadcast, "pthread_cond_broadcast")(cond);
}

extern "C" __attribute__((visibility("default"))) int
pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex, const timespec* until)
{
    if (const auto hook = takeHook(&Hooks::timedWait)) {
        return hook();
    }
    return next<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)>(
        next_timed_wait, "pthread_cond_timedwait")(cond, mutex, until);
}

namespace {

TEST(ActivityRecorderLock, LastDecDoesNotUseTheRecorderOnceTheBacklogIsZeroIfAWaitHasTimedOut)
{
    RX_ActivityRecorder* const recorder = new RX_ActivityRecorder;
    recorder->inc();
    qvtest::Gate isWaiting;
    qvtest::Gate isAtTheLock;
    qvtest::Gate hasTimedOut;
    std::atomic<bool> wasQuiet{false};

    // Finds a waiting thread and its own closure as the last one. Before it acquires the lock, the wait ends.
    qvtest::Caller last([&] {
        isWaiting.pass();
        Hooks own;
        own.mutexLock = [&] {
            isAtTheLock.open();
            hasTimedOut.pass();
            // Called only if the recorder is still in use: a thread that waits for 0 must then wait for this
            // one.
            own.broadcast = [&] {
                qvtest::Caller([&] { wasQuiet = recorder->waitForQuiet(now()) != 0; }).join();
            };
        };
        hooks = &own;
        recorder->dec();
        hooks = nullptr;
    });

    Hooks own;
    own.timedWait = [&] {
        isWaiting.open();
        isAtTheLock.pass();
        return ETIMEDOUT;
    };
    hooks = &own;
    EXPECT_EQ(recorder->waitForQuiet(now()), 0);
    hooks = nullptr;
    hasTimedOut.open();
    last.join();
    EXPECT_FALSE(wasQuiet) << "the recorder might have been destroyed";
    EXPECT_EQ(recorder->waitForQuiet(now()), 1);
    recorder->detach();
}

}
