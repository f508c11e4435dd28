// Locks and threads that the system cannot create, or for which memory runs out.

#include "layer/Expect.hpp"
#include "layer/Fault.hpp"
#include "layer/Walk.hpp"
#include "mt/Work.hpp"

#include <dalnim/log/Control.hpp>
#include <dalnim/mt/CondSem.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/SysMutex.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/System.hpp>

#include <qv/rtlapi/RX_Exception.hpp>
#include <qv/rtlapi/RX_ExFatal.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>
#include <typeinfo>

namespace {

using namespace faults;
using com::kor::dal::nim::mt::CondSem;
using com::kor::dal::nim::mt::CriticalSection;
using com::kor::dal::nim::mt::Queue;
using com::kor::dal::nim::mt::QueueElement;
using com::kor::dal::nim::mt::ReaderWriterLock;
using com::kor::dal::nim::mt::SysMutex;
using com::kor::dal::nim::mt::Task;
using com::kor::dal::nim::mt::Thread;
using com::kor::dal::nim::mt::ThreadPool;
using com::kor::dal::nim::sys::system_error;
using mttest::OwnTask;
using mttest::OwnThread;

TEST(LocksFault, LockThatCannotBeCreatedThrows)
{
    // A mutex is copied from an initialised image, without a system call.
    for (const Call call : {Call::CONDATTR_INIT, Call::COND_INIT}) {
        EXPECT_EQ("12 Cannot allocate memory",
                  failureOf(call, ENOMEM, [] { const CondSem lock(nullptr, true); }));
        EXPECT_EQ("11 Resource temporarily unavailable",
                  failureOf(call, EAGAIN, [] { const CondSem lock(nullptr, true); }));
        EXPECT_EQ("12 Cannot allocate memory", failureOf(call, ENOMEM, [] { const Queue queue(1); }));
    }
    EXPECT_EQ("22 Invalid argument",
              failureOf(Call::CONDATTR_SETCLOCK, EINVAL, [] { const CondSem lock(nullptr, true); }));
}

TEST(LocksFault, LockThatCannotBeAcquiredThrows)
{
    const CriticalSection section;
    const SysMutex mutex;
    EXPECT_EQ("35 Resource deadlock avoided",
              failureOf(Call::MUTEX_LOCK, EDEADLK, [&] { section.acquire(); }));
    EXPECT_EQ("35 Resource deadlock avoided", failureOf(Call::MUTEX_LOCK, EDEADLK, [&] { mutex.acquire(); }));
    {
        const Fault fault(Call::MUTEX_TRYLOCK, EBUSY);
        EXPECT_FALSE(section.request());
        EXPECT_FALSE(mutex.request());
    }
    onNewThread([&] {
        EXPECT_TRUE(section.request());
        section.release();
        EXPECT_TRUE(mutex.request());
        mutex.release();
    });
}

/** Fails each allocation of a constructor, which must succeed, or throw bad_alloc or 12 (ENOMEM). */
template <class Lock, class... Arguments>
unsigned int walkConstruction(Arguments... arguments)
{
    WalkOptions options;
    options.named = [](const std::exception& failure) {
        const auto* const error = dynamic_cast<const system_error*>(&failure);
        return error != nullptr && error->error() == ENOMEM;
    };
    return walkAllocations([] { return std::unique_ptr<Lock>(); },
                           [&](std::unique_ptr<Lock>& lock) { lock.reset(new Lock(arguments...)); },
                           [](std::unique_ptr<Lock>& lock, bool done) { EXPECT_EQ(done, lock != nullptr); },
                           options);
}

TEST(LocksFault, LockIsConstructedOrThrows)
{
    EXPECT_GE(walkConstruction<CriticalSection>(), 1u);
    EXPECT_GE(walkConstruction<SysMutex>(), 2u);
    EXPECT_GE(walkConstruction<CondSem>(nullptr, true), 2u);
    EXPECT_GE(walkConstruction<ReaderWriterLock>(), 2u);
    EXPECT_GE(walkConstruction<Queue>(4u), 2u);
}

class Element : public QueueElement
{};

TEST(LocksFault, ElementIsQueuedOrRemainsTheCallers)
{
    Element element;
    walkAllocations([] { return std::make_unique<Queue>(2u); },
                    [&](std::unique_ptr<Queue>& queue) { EXPECT_TRUE(queue->insert(&element, 0)); },
                    [&](std::unique_ptr<Queue>& queue, bool done) {
                        EXPECT_EQ(done ? &element : nullptr, queue->next(0));
                    });
}

// ---- threads --------------------------------------------------------------------------------

/** Returns the error number of an RX_Exception that leaves the operation; 0 for none. */
template <class Operation>
int rawFailureOf(Call call, int error, Operation operation)
{
    Fault fault(call, error);
    const Outcome outcome = outcomeUnder(fault, operation);
    if (outcome.kind == Outcome::FAILED) {
        try {
            std::rethrow_exception(outcome.failure);
        } catch (const RX_ExFatal& failure) {
            return failure.getCode();
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
    return 0;
}

TEST(ThreadsFault, ThreadThatCannotBeCreatedRemainsStarting)
{
    for (const Call call : {Call::THREAD_CREATE, Call::THREAD_ATTR_INIT, Call::THREAD_ATTR_SETDETACHSTATE}) {
        for (const bool joinable : {true, false}) {
            std::atomic<int> ran{0};
            OwnThread thread([&] { ++ran; }, joinable);
            EXPECT_EQ(EAGAIN, rawFailureOf(call, EAGAIN, [&] { thread.start(joinable); }));
            EXPECT_EQ(Task::TSF_STARTING, thread.status());
            EXPECT_THROW(thread.start(joinable), std::logic_error);
            if (joinable) {
                try {
                    thread.join();
                    ADD_FAILURE() << "nothing was thrown";
                } catch (const RX_ExFatal& failure) {
                    EXPECT_EQ(EAGAIN, failure.getCode());
                }
            }
            EXPECT_EQ(0, ran);
        }
    }
}

TEST(ThreadsFault, PoolThatCannotBeCreatedLeavesNothing)
{
    for (unsigned int n = 1; n <= 4; ++n) {
        Fault fault(Call::THREAD_CREATE, EAGAIN, n, 1);
        const Outcome outcome = outcomeUnder(fault, [] { ThreadPool pool("refused", 4, 0, 0, 0, 0, 10); });
        EXPECT_EQ(Outcome::FAILED, outcome.kind);
        try {
            std::rethrow_exception(outcome.failure);
        } catch (const RX_ExFatal& failure) {
            EXPECT_EQ(EAGAIN, failure.getCode());
        } catch (...) {
            ADD_FAILURE() << "another failure";
        }
    }
}

TEST(ThreadsFault, ThreadIsStartedOrRunsOutOfMemory)
{
    WalkOptions here;
    here.onThisThread = true;
    EXPECT_GE(walkAllocations([] { return 0; },
                              [](int& ran) {
                                  std::atomic<int> count{0};
                                  OwnThread thread([&] { ++count; });
                                  thread.start();
                                  thread.join();
                                  ran = count;
                              },
                              [](int ran, bool done) { EXPECT_EQ(done ? 1 : 0, ran); }, here),
              3u);
}

class CountedWork : public mttest::Work, public com::kor::dal::nim::mem::RefCntObject
{
public:
    ~CountedWork() override = default;
};

TEST(ThreadsFault, TargetRemainsTheCallersIfConstructionFails)
{
    const com::kor::dal::nim::mem::RcoRef<CountedWork> work(new CountedWork);
    const String name(200, 'n');
    com::kor::dal::nim::mem::RcoRef<CountedWork> other(work);
    EXPECT_GE(walkAllocations([] { return 0; },
                              [&](int&) {
                                  const Task task(other.get(), true, name.c_str());
                                  const Thread thread(other.get(), true, true, name.c_str());
                              },
                              [&](int, bool) { EXPECT_EQ(2U, work->refCount()); }),
              1u);
}

TEST(ThreadsFault, JoinDoesNotBlockIfStartRanOutOfMemory)
{
    WalkOptions here;
    here.onThisThread = true;
    walkAllocations([] { return 0; },
                    [](int&) {
                        OwnThread thread([] {});
                        try {
                            thread.start();
                        } catch (...) {
                            EXPECT_ANY_THROW(thread.join());
                            throw;
                        }
                        thread.join();
                    },
                    [](int, bool) {}, here);
}

TEST(ThreadsFault, TaskIsAddedOrRunsOutOfMemory)
{
    ThreadPool pool("pool", 2, 0, 0, 0, 0, 100);
    struct Subject
    {
        std::atomic<int> ran{0};
    };
    EXPECT_GE(walkAllocations([] { return std::make_unique<Subject>(); },
                              [&](std::unique_ptr<Subject>& subject) {
                                  OwnTask task([&] { ++subject->ran; });
                                  if (pool.add(task)) {
                                      mttest::awaitEnd(task);
                                  }
                              },
                              [](std::unique_ptr<Subject>& subject, bool done) {
                                  EXPECT_EQ(done ? 1 : 0, subject->ran);
                              }),
              4u);
    pool.shutdown();
}

class CountedTask : public OwnTask, public com::kor::dal::nim::mem::RefCntObject
{
public:
    explicit CountedTask(std::atomic<int>* destroyedTasks, bool isThreadSafe = true)
        : OwnTask(nullptr, destroyedTasks), RefCntObject(true, isThreadSafe)
    {
    }
    ~CountedTask() override = default;
};

TEST(ThreadsFault, CountedTaskRemainsTheCallersIfItCannotBeQueued)
{
    ThreadPool pool("pool", 1, 0, 0, 0, 0, 10);
    // The first add() of a process creates a thread key under InitLock, which this fault must not affect.
    OwnTask first(nullptr);
    pool.add(first);
    mttest::awaitEnd(first);
    std::atomic<int> destroyed{0};
    for (const bool isThreadSafe : {true, false}) {
        destroyed = 0;
        auto* const task = new CountedTask(&destroyed, isThreadSafe);
        {
            const Fault fault(Call::MUTEX_LOCK, EINVAL);
            EXPECT_THROW(pool.add(task, true), RX_ExFatal);
        }
        ASSERT_EQ(0, destroyed) << "it had no reference, so it remains the caller's";
        EXPECT_EQ(0U, task->refCount());
        EXPECT_EQ(Task::TSF_QUEUED, task->status());
        com::kor::dal::nim::mem::RcoRef<CountedTask> owner(task);
        owner.clear();
        EXPECT_EQ(1, destroyed);
    }

    // The caller's own reference remains.
    const com::kor::dal::nim::mem::RcoRef<CountedTask> owner(new CountedTask(&destroyed));
    com::kor::dal::nim::mem::RcoRef<CountedTask> other(owner);
    {
        const Fault fault(Call::MUTEX_LOCK, EINVAL);
        EXPECT_THROW(pool.add(other.get(), true), RX_ExFatal);
    }
    EXPECT_EQ(2U, owner->refCount());
}

TEST(ThreadsFault, PoolIsConstructedOrRunsOutOfMemory)
{
    testing::internal::CaptureStderr();
    EXPECT_GE(
        walkAllocations(
            [] { return std::unique_ptr<ThreadPool>(); },
            [](std::unique_ptr<ThreadPool>& pool) { pool.reset(new ThreadPool(nullptr, 2, 0, 0, 0, 0, 10)); },
            [](std::unique_ptr<ThreadPool>& pool, bool done) { EXPECT_EQ(done, pool != nullptr); }),
        4u);
    EXPECT_EQ("", testing::internal::GetCapturedStderr())
        << "an object whose construction failed is not reported";
}

TEST(ThreadsFault, PoolIsDestroyedIfMemoryRunsOut)
{
    const auto makePool = [] { return std::make_unique<ThreadPool>("pool", 2, 0, 0, 0, 0, 10); };
    const auto check = [](std::unique_ptr<ThreadPool>&, bool done) { EXPECT_TRUE(done); };
    // On a thread that already has a ThreadState: on a new one, the call's StackTrack allocates it.
    WalkOptions here;
    here.onThisThread = true;
    com::kor::dal::nim::sys::System::threadId();
    EXPECT_GE(walkAllocations(
                  makePool, [](std::unique_ptr<ThreadPool>& pool) { pool->shutdown(); }, check, here),
              1u);
    EXPECT_GE(walkAllocations(
                  makePool, [](std::unique_ptr<ThreadPool>& pool) { pool->shutdown(false); }, check, here),
              1u);
    EXPECT_GE(walkAllocations(
                  makePool, [](std::unique_ptr<ThreadPool>& pool) { pool.reset(); }, check),
              1u);
}

TEST(ThreadsFault, DetachedThreadIsStartedOrRunsOutOfMemory)
{
    struct Subject
    {
        std::atomic<int> ran{0};
    };
    WalkOptions here;
    here.onThisThread = true;
    EXPECT_GE(walkAllocations(
                  [] { return std::make_unique<Subject>(); },
                  [](std::unique_ptr<Subject>& subject) {
                      OwnThread thread([&] { ++subject->ran; }, false);
                      thread.start();
                      mttest::awaitEnd(thread);
                  },
                  [](std::unique_ptr<Subject>& subject, bool done) { EXPECT_EQ(done ? 1 : 0, subject->ran); },
                  here),
              3u);
}

/** Arms a fault for the rest of the calling thread's life. */
void armThisThread(unsigned int first, unsigned int count)
{
    // Never destroyed, since the thread continues after the scope of the caller.
    alignas(Fault) static thread_local unsigned char place[sizeof(Fault)];
    new (place) Fault(Call::NEW, ENOMEM, first, count);
}

TEST(ThreadsFault, ExceptionOfAThreadReachesItsJoinerOrRunsOutOfMemory)
{
    const String text(200, 't');
    for (const unsigned int count : {1U, Fault::EVER}) {
        unsigned int missing = 0;
        for (unsigned int n = 1; n <= 8; ++n) {
            OwnThread thread([&] {
                const std::runtime_error error(text);
                armThisThread(n, count);
                throw error;
            });
            thread.start();
            const std::exception* const failure = thread.join();
            ASSERT_NE(nullptr, failure);
            if (typeid(*failure) == typeid(std::bad_alloc)) {
                ++missing;
            } else {
                EXPECT_EQ(text, failure->what());
            }
            EXPECT_EQ(Task::TSF_READY, thread.status());
        }
        EXPECT_GE(missing, 1u);
        EXPECT_LT(missing, 8u);
    }
}

/** The exception of a detached thread is logged, or a line reports that the record was lost; the thread ends.
 */
TEST(ThreadsFault, DetachedThreadThatThrowsEndsIfMemoryRunsOut)
{
    const String text(200, 't');
    for (const unsigned int count : {1U, Fault::EVER}) {
        for (unsigned int n = 1; n <= 12; ++n) {
            testing::internal::CaptureStderr();
            OwnThread thread(
                [&] {
                    const std::runtime_error error(text);
                    armThisThread(n, count);
                    throw error;
                },
                false);
            thread.start();
            mttest::awaitEnd(thread);
            const std::string output = testing::internal::GetCapturedStderr();
            // If the stream cannot grow, it truncates the text of the record.
            const bool isLogged = output.find(" : Exception from") != std::string::npos;
            const bool isLost = output.find("Thread: a log record was lost") != std::string::npos;
            EXPECT_TRUE(isLogged || isLost) << "without allocation " << n << ": " << output;
        }
    }
}

TEST(ThreadsFault, LineAboutALostRecordHasThePriorityOfAnError)
{
    com_kor_dal_nim_log_control.setPriorityPrefix(true);
    unsigned int lost = 0;
    for (unsigned int n = 1; n <= 12; ++n) {
        testing::internal::CaptureStderr();
        OwnThread thread(
            [&] {
                const std::runtime_error error("text");
                armThisThread(n, Fault::EVER);
                throw error;
            },
            false);
        thread.start();
        mttest::awaitEnd(thread);
        const std::string output = "\n" + testing::internal::GetCapturedStderr();
        if (output.find("Thread: a log record was lost") != std::string::npos) {
            ++lost;
            EXPECT_NE(std::string::npos, output.find("\n<3>Thread: a log record was lost")) << output;
        }
    }
    com_kor_dal_nim_log_control.setPriorityPrefix(false);
    EXPECT_GE(lost, 1u);
}

TEST(ThreadsFault, WorkerThatRunsOutOfMemoryRunsTheNextTask)
{
    ThreadPool pool("pool", 1, 0, 0, 0, 0, 100);
    std::atomic<int> ran{0};
    OwnTask failing([] {
        const Fault fault(Call::NEW, ENOMEM);
        static_cast<void>(::operator new(1));
    });
    OwnTask next([&] { ++ran; });
    EXPECT_TRUE(pool.add(failing));
    EXPECT_TRUE(pool.add(next));
    mttest::awaitEnd(failing);
    mttest::awaitEnd(next);
    EXPECT_EQ(1, ran);
    pool.shutdown();
}

}
