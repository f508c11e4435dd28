// Threads for which no ThreadState can be created: this program lets the required calls fail.

#include <dalnim/sys/internal/ThreadState.hpp>

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <qv/pmx/thread.h>

#include "faults/layer/Fault.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <new>
#include <thread>

#include <pthread.h>
#include <unistd.h>

namespace {

namespace mt = com::kor::dal::nim::mt;
using com::kor::dal::nim::StringVector;
using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::internal::ThreadState;
using faults::Call;
using faults::Fault;

thread_local qv_err_t setStatus = 0;
/** Whether threads that the tests do not start themselves get no state, as if memory had run out. */
std::atomic<bool> isRefusedToOthers{false};
thread_local bool isOfTheTest = false;
std::atomic<int> keysMade{0};
std::atomic<int> valuesEmptied{0};

}

qv_err_t qv_si_thread_keycreate(si_thread_key_t* key, void (*destructor)(void*)) noexcept
{
    if (std::getenv("DALNIM_TEST_NO_KEY") != nullptr) {
        return EAGAIN;
    }
    ++keysMade;
    return pthread_key_create(key, destructor);
}

qv_err_t qv_si_thread_setspecific(si_thread_key_t key, const void* value) noexcept
{
    if (value == nullptr) {
        ++valuesEmptied;
    }
    if (value != nullptr && isRefusedToOthers && !isOfTheTest) {
        return ENOMEM;
    }
    return setStatus != 0 ? setStatus : pthread_setspecific(key, value);
}

namespace {

TEST(ThreadStateFault, FailedRegistrationThrows)
{
    std::thread([] {
        setStatus = ENOMEM;
        for (int i = 0; i < 2; ++i) {
            try {
                ThreadState::current();
                ADD_FAILURE() << "nothing was thrown";
            } catch (const system_error& error) {
                EXPECT_EQ(12, error.error());
                EXPECT_STREQ("Cannot allocate memory", error.what());
                EXPECT_TRUE(error.empty());
            }
        }
        setStatus = 0;
        EXPECT_EQ(gettid(), ThreadState::current().tid);
    }).join();
}

TEST(ThreadStateFault, TrackThrowsIfTheStateCannotBeConstructed)
{
    std::thread([] {
        setStatus = EINVAL;
        EXPECT_THROW(StackTrack("f()", 1), system_error);
        setStatus = 0;
        const StackTrack track("f()", 2);
        EXPECT_EQ(StringVector{"f():2"}, StackTrace().trace());
    }).join();
}

TEST(ThreadStateFault, StackTraceConstructsNoState)
{
    std::thread([] {
        setStatus = ENOMEM;
        EXPECT_TRUE(StackTrace().empty());
        EXPECT_STREQ("text", system_error(1, "text").what());
    }).join();
}

TEST(ThreadStateFault, StateIsUnregisteredBeforeItIsDestroyed)
{
    const int before = valuesEmptied;
    std::thread([] { ThreadState::current(); }).join();
    EXPECT_EQ(before + 1, valuesEmptied);
    std::thread([] {}).join();
    EXPECT_EQ(before + 1, valuesEmptied) << "a thread without a state has none to remove";
}

TEST(ThreadStateFault, IsDestroyedEvenIfItCannotBeUnregistered)
{
    const int before = valuesEmptied;
    std::thread([] {
        ThreadState::current();
        setStatus = EINVAL;
    }).join();
    EXPECT_EQ(before + 1, valuesEmptied) << "the status is ignored";
}

TEST(ThreadStateFault, ThrowsBadAllocIfMemoryRunsOut)
{
    std::thread([] {
        bool reported = false;
        Fault noMemory(Call::NEW, ENOMEM);
        try {
            ThreadState::current();
        } catch (const std::bad_alloc&) {
            reported = true;
        }
        noMemory.disarm();
        EXPECT_TRUE(reported);
        EXPECT_EQ(gettid(), ThreadState::current().tid);
    }).join();
}

TEST(ThreadStateFault, TrackThatRunsOutOfMemoryLeavesTheStackUnchanged)
{
    std::thread([] {
        const StackTrack outer("outer()", 1);
        ThreadState& state = ThreadState::current();
        state.where.shrink_to_fit();
        bool reported = false;
        Fault noMemory(Call::NEW, ENOMEM);
        try {
            const StackTrack inner("inner()", 2);
        } catch (const std::bad_alloc&) {
            reported = true;
        }
        noMemory.disarm();
        EXPECT_TRUE(reported);
        EXPECT_EQ(StringVector{"outer():1"}, StackTrace().trace());
    }).join();
}

TEST(ThreadStateFault, AllThreadsShareOneKey)
{
    std::thread threads[8];
    for (std::thread& thread : threads) {
        thread = std::thread([] { ThreadState::current(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1, keysMade);
}

/** Refuses states to threads of the library for a scope. */
struct Refusal
{
    Refusal()
    {
        isOfTheTest = true;
        isRefusedToOthers = true;
    }
    ~Refusal()
    {
        isRefusedToOthers = false;
    }
    Refusal(const Refusal&) = delete;
    Refusal& operator=(const Refusal&) = delete;
};

struct CountingTarget : mt::Runnable
{
    void run() override
    {
        ++runs;
    }
    std::atomic<int> runs{0};
};

TEST(ThreadStateFault, WorkerWithoutAStateFinishesTheTaskWithAnException)
{
    for (const bool isMeasured : {false, true}) {
        CountingTarget target;
        mt::Task failing(target, "failing");
        mt::Task fine(target, "fine");
        mt::ThreadPool pool("pool", 1, 0, 0, 0, 0, 8);
        std::atomic<int> error{0};
        pool.setExceptionHandler(
            [&](const mt::Task* task, const std::exception* known, const std::exception_ptr&) {
                EXPECT_EQ(&failing, task);
                const auto* const refused = dynamic_cast<const system_error*>(known);
                error = refused != nullptr ? refused->error() : -1;
            });
        if (isMeasured) {
            pool.collectStatistics();
        }
        {
            const Refusal refusal;
            pool.add(failing);
            while (failing.status() != mt::Task::TSF_FINISHED) {
                std::this_thread::yield();
            }
        }
        EXPECT_EQ(12, error);
        EXPECT_EQ(0, target.runs);
        EXPECT_EQ(1U, pool.exceptionCount());
        pool.add(fine);
        pool.shutdown();
        EXPECT_EQ(1, target.runs);
        EXPECT_EQ(mt::Task::TSF_FINISHED, fine.status());
        if (isMeasured) {
            EXPECT_EQ(2U, pool.statistics().finished);
            EXPECT_EQ(1U, pool.statistics().thrown);
        }
    }
}

TEST(ThreadStateFault, ThreadWithoutAStateFinishesWithAnException)
{
    CountingTarget target;
    mt::Thread joinable(target, true, "joinable");
    mt::Thread detached(target, false, "detached");
    {
        const Refusal refusal;
        joinable.start();
        detached.start();
        while (joinable.status() != mt::Task::TSF_FINISHED || detached.status() != mt::Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        const auto* const error = dynamic_cast<const system_error*>(joinable.join());
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(12, error->error());
    }
    EXPECT_EQ(0, target.runs);
}

TEST(ThreadStateFaultDeathTest, MissingThreadKeyTerminatesTheProcess)
{
    // The program is started again, and gets no key when its library is loaded or at the first use.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("DALNIM_TEST_NO_KEY", "1", 1);
    EXPECT_EXIT(ThreadState::current(), testing::KilledBySignal(SIGABRT),
                "qv: fatal error at sys/internal/src/ThreadState:90");
    unsetenv("DALNIM_TEST_NO_KEY");
}

}
