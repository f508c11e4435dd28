#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/type/Cloneable.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <stdexcept>
#include <thread>

#include <pthread.h>

#include <log/Loggers.hpp>
#include <qv/Threads.hpp>
#include <qv/rtlapi/RX_Condition.hpp>
#include <qv/rtlapi/RX_Locked_.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Keys;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::Work;
using nim::mem::RcoRef;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
using qvtest::Caller;
using qvtest::Gate;

/** Counts the local objects that are destroyed when a run is unwound. */
class Local
{
public:
    explicit Local(std::atomic<int>& destroyedLocals) : destroyed(destroyedLocals) {}
    Local(const Local&) = delete;
    Local& operator=(const Local&) = delete;
    ~Local()
    {
        ++destroyed;
    }

private:
    std::atomic<int>& destroyed;
};

/** The two ways in which a run ends its thread. */
enum class Ending { EXIT, CANCELLATION };

/** Ends the calling thread: by itself, or by another thread that cancels it in a wait. */
class Ender
{
public:
    explicit Ender(Ending enderEnding) : ending(enderEnding) {}
    Ender(const Ender&) = delete;
    Ender& operator=(const Ender&) = delete;
    ~Ender() noexcept {}

    /** Ends the calling thread. */
    void end()
    {
        const Local local(unwound);
        if (ending == Ending::EXIT) {
            pthread_exit(nullptr);
        }
        thread = pthread_self();
        entered.open();
        // The thread sanitizer supports cancellation of this wait.
        const RX_Locked_ lock(never.mutex);
        for (;;) {
            never.changed.wait();
        }
    }
    /** Cancels the thread that calls end(), if the test requires it. Called by another thread. */
    void cancelIfNeeded()
    {
        if (ending == Ending::CANCELLATION) {
            entered.pass();
            EXPECT_EQ(0, pthread_cancel(thread));
        }
    }

    std::atomic<int> unwound{0};

private:
    struct Never
    {
        RX_Mutex mutex;
        RX_Condition changed{mutex};
    };

    const Ending ending;
    Never never;
    Gate entered;
    pthread_t thread{};
};

class ThreadEnding : public testing::TestWithParam<Ending>
{
protected:
    Ender ender{GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Endings, ThreadEnding, testing::Values(Ending::EXIT, Ending::CANCELLATION),
                         [](const testing::TestParamInfo<Ending>& ending) {
                             return ending.param == Ending::EXIT ? "PthreadExit" : "Cancellation";
                         });

TEST_P(ThreadEnding, JoinableRunIsFinishedWithoutAnException)
{
    const Keys keys;
    const RcoRef<Content> content(new Content(1));
    Thread* current = nullptr;
    Task::TaskState state = Task::TSF_READY;
    Work work([&] {
        current = Thread::currentThread();
        state = current->status();
        nim::type::ContainerContext::current()->add(content, keys.shared);
        ender.end();
    });
    Thread thread(work);
    thread.start();
    ender.cancelIfNeeded();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(1, ender.unwound);
    EXPECT_EQ(Task::TSF_READY, thread.status());
    EXPECT_EQ(&thread, current);
    EXPECT_EQ(Task::TSF_RUNNING, state);
    EXPECT_EQ(1U, content->refCount()) << "the context of the thread is cleared";
}

TEST_P(ThreadEnding, JoinedThreadCanRunAgain)
{
    bool mustEnd = true;
    int runs = 0;
    Work work([&] {
        ++runs;
        if (mustEnd) {
            ender.end();
        }
        throw std::runtime_error("second");
    });
    Thread thread(work);
    thread.start();
    ender.cancelIfNeeded();
    EXPECT_EQ(nullptr, thread.join());
    mustEnd = false;
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_STREQ("second", error->what());
    EXPECT_EQ(2, runs);
}

TEST_P(ThreadEnding, FinishesTheTargetAndWakesItsWaiters)
{
    Gate isWaitedFor;
    Work work([&] {
        isWaitedFor.pass();
        ender.end();
    });
    Task target(work);
    Thread thread(target);
    thread.start();
    std::atomic<int> woken{0};
    Caller onTarget([&] { woken += target.waitForCompletion(60000) ? 1 : 0; });
    Caller onThread([&] { woken += thread.waitForCompletion(60000) ? 1 : 0; });
    EXPECT_TRUE(onTarget.awaitAsleep());
    EXPECT_TRUE(onThread.awaitAsleep());
    isWaitedFor.open();
    ender.cancelIfNeeded();
    onTarget.join();
    onThread.join();
    EXPECT_EQ(2, woken);
    EXPECT_EQ(Task::TSF_FINISHED, target.status());
    EXPECT_EQ(nullptr, thread.join());
}

TEST_P(ThreadEnding, FinishesADetachedRunAndLogsNothing)
{
    logtest::DefaultLogger logger;
    Work work([&] { ender.end(); });
    Thread thread(work, false);
    thread.start();
    ender.cancelIfNeeded();
    awaitEnd(thread);
    EXPECT_EQ(1, ender.unwound);
    EXPECT_EQ("", logger.taken());
}

/** An exception that ends the thread when it is cloned. */
class Fatal : public std::runtime_error, public nim::type::Cloneable
{
public:
    explicit Fatal(Ender& fatalEnder) : std::runtime_error("fatal"), ender(fatalEnder) {}
    ~Fatal() noexcept override = default;
    nim::type::Cloneable* clone(bool) const override
    {
        ender.end();
        return nullptr;
    }

private:
    Ender& ender;
};

TEST_P(ThreadEnding, MayHappenWhileAnExceptionIsCopied)
{
    Work work([this] { throw Fatal(ender); });
    Thread thread(work);
    thread.start();
    ender.cancelIfNeeded();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(1, ender.unwound);
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST_P(ThreadEnding, PoolTaskIsFinishedAndTheWorkerReplaced)
{
    const auto pool = makePool(1, 5);
    Gate isWaitedFor;
    const Task* current = nullptr;
    const ThreadPool* currentPool = nullptr;
    OwnTask task([&] {
        isWaitedFor.pass();
        current = Task::currentTask();
        currentPool = ThreadPool::currentPool();
        ender.end();
    });
    EXPECT_TRUE(pool->add(task));
    std::atomic<bool> isWoken{false};
    Caller waiter([&] { isWoken = task.waitForCompletion(60000); });
    EXPECT_TRUE(waiter.awaitAsleep());
    isWaitedFor.open();
    ender.cancelIfNeeded();
    waiter.join();
    EXPECT_TRUE(isWoken);
    EXPECT_EQ(1, ender.unwound);
    EXPECT_EQ(&task, current);
    EXPECT_EQ(pool.get(), currentPool);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
    bool isClean = false;
    OwnTask next([&] { isClean = Thread::currentThread() == nullptr && Task::currentTask() == &next; });
    EXPECT_TRUE(pool->add(next));
    awaitEnd(next);
    EXPECT_TRUE(isClean);
    pool->shutdown();
}

TEST_P(ThreadEnding, FinishesAPoolTaskWithATarget)
{
    const auto pool = makePool(1, 5);
    Work work([this] { ender.end(); });
    Task task(work);
    EXPECT_TRUE(pool->add(task));
    ender.cancelIfNeeded();
    awaitEnd(task);
    pool->shutdown();
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST_P(ThreadEnding, ReleasesTheContextOfAPoolTask)
{
    const auto pool = makePool(1, 5);
    const Keys keys;
    const RcoRef<Content> content(new Content(1));
    OwnTask task([&] {
        nim::type::ContainerContext::current()->add(content, keys.shared);
        ender.end();
    });
    EXPECT_TRUE(pool->add(task));
    ender.cancelIfNeeded();
    pool->shutdown(true);
    EXPECT_EQ(1U, content->refCount());
}

TEST_P(ThreadEnding, DestroysAManagedPoolTask)
{
    std::atomic<int> destroyed{0};
    const auto pool = makePool(1, 5);
    EXPECT_TRUE(pool->add(new OwnTask([this] { ender.end(); }, &destroyed), true));
    ender.cancelIfNeeded();
    pool->shutdown(true);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(1, ender.unwound);
}

/** An entry whose destructor is a cancellation point, like that of an object that closes a file. */
class Closing : public nim::mem::RefCntObject
{
public:
    explicit Closing(std::atomic<int>& count) : ended(count) {}
    ~Closing() override
    {
        pthread_testcancel();
        ++ended;
    }

private:
    std::atomic<int>& ended;
};

/** A run that is cancelled, but does not reach another cancellation point. */
void runCancelled(std::atomic<int>& ended)
{
    const nim::mem::RefCntObjectRef content(new Closing(ended));
    nim::type::ContainerContext::current()->add(content, nim::type::Context::allocateKey(1));
    EXPECT_EQ(0, pthread_cancel(pthread_self()));
}

TEST(ThreadEnd, CancellationDoesNotInterruptTheDestructionOfTheContext)
{
    std::atomic<int> ended{0};
    Work work([&] { runCancelled(ended); });
    Thread thread(work);
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(1, ended);
}

TEST(ThreadPoolEnding, CancellationDoesNotInterruptTheDestructionOfTheTasksContext)
{
    std::atomic<int> ended{0};
    const auto pool = makePool(1, 5);
    OwnTask task([&] { runCancelled(ended); });
    EXPECT_TRUE(pool->add(task));
    OwnTask next;
    EXPECT_TRUE(pool->add(next));
    pool->shutdown(true);
    EXPECT_EQ(1, ended);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
    EXPECT_EQ(Task::TSF_FINISHED, next.status());
}

TEST(ThreadPoolEnding, CancellationDoesNotInterruptTheDestructionOfAQueuedContext)
{
    std::atomic<int> ended{0};
    const auto pool = makePool(1, 5);
    nim::type::ContainerContextRef context = nim::type::ContainerContext::current();
    context->add(nim::mem::RefCntObjectRef(new Closing(ended)), nim::type::Context::allocateKey(1));
    Gate isLast;
    OwnTask task([&] {
        isLast.pass();
        EXPECT_EQ(0, pthread_cancel(pthread_self()));
    });
    EXPECT_TRUE(pool->add(task));
    context->clearContent();
    isLast.open();
    pool->shutdown(true);
    EXPECT_EQ(1, ended);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(ThreadPoolEnding, CancellationDoesNotInterruptTheDestructionOfADiscardedContext)
{
    std::atomic<int> ended{0};
    const auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    nim::type::ContainerContextRef context = nim::type::ContainerContext::current();
    context->add(nim::mem::RefCntObjectRef(new Closing(ended)), nim::type::Context::allocateKey(1));
    OwnTask dropped;
    EXPECT_TRUE(pool->add(dropped));
    context->clearContent();
    std::atomic<bool> hasReturned{false};
    Caller closer([&] {
        EXPECT_EQ(0, pthread_cancel(pthread_self()));
        pool->shutdown(false);
        hasReturned = true;
    });
    closer.join();
    EXPECT_EQ(1, ended);
    EXPECT_FALSE(hasReturned) << "cancelled in the wait for a worker";
    EXPECT_EQ(Task::TSF_QUEUED, dropped.status());
}

TEST(ThreadPoolEnding, WorkersEndIfTheDestructorIsCancelled)
{
    // A thread-local object of the worker is destroyed when the worker ends.
    struct ThreadLocalObject
    {
        ~ThreadLocalObject()
        {
            if (gate != nullptr) {
                gate->open();
            }
        }
        Gate* gate = nullptr;
    };
    Gate entered;
    Gate leave;
    Gate hasEnded;
    OwnTask task([&] {
        static thread_local ThreadLocalObject object;
        object.gate = &hasEnded;
        entered.open();
        leave.pass();
    });
    auto pool = makePool(1, 5);
    EXPECT_TRUE(pool->add(task));
    entered.pass();
    std::atomic<pthread_t> owner{};
    Caller destroyer([&] {
        owner = pthread_self();
        // Not deleted by the unique_ptr, whose noexcept destructor would stop the unwinding.
        delete pool.release();
    });
    EXPECT_TRUE(destroyer.awaitAsleep());
    EXPECT_EQ(0, pthread_cancel(owner));
    destroyer.join();
    leave.open();
    hasEnded.pass();
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(ThreadPoolEnding, NumberOfWorkersIsKept)
{
    const auto pool = makePool(3, 100);
    std::deque<OwnTask> tasks;
    for (int i = 0; i < 30; ++i) {
        tasks.emplace_back([] { pthread_exit(nullptr); });
        EXPECT_TRUE(pool->add(tasks.back()));
    }
    for (const OwnTask& task : tasks) {
        awaitEnd(task);
    }
    // All three run at the same time, and no fourth one does.
    Occupation all(*pool, 3);
    OwnTask fourth;
    EXPECT_TRUE(pool->add(fourth));
    EXPECT_EQ(Task::TSF_QUEUED, fourth.status());
    all.end();
    awaitEnd(fourth);
}

TEST(ThreadPoolEnding, LosesNoTaskOfManySubmitters)
{
    for (int round = 0; round < 10; ++round) {
        std::atomic<int> runs{0};
        const auto pool = makePool(3, 4);
        std::deque<std::deque<OwnTask>> tasks(3);
        std::vector<std::thread> submitters;
        for (std::deque<OwnTask>& own : tasks) {
            submitters.emplace_back([&] {
                for (int i = 0; i < 40; ++i) {
                    own.emplace_back([&runs, i] {
                        ++runs;
                        if (i % 2 == 0) {
                            pthread_exit(nullptr);
                        }
                    });
                    EXPECT_TRUE(pool->add(own.back()));
                }
            });
        }
        for (std::thread& submitter : submitters) {
            submitter.join();
        }
        pool->shutdown(true);
        EXPECT_EQ(120, runs);
        for (const std::deque<OwnTask>& own : tasks) {
            for (const OwnTask& task : own) {
                EXPECT_EQ(Task::TSF_FINISHED, task.status());
            }
        }
    }
}

TEST(ThreadPoolEnding, ShutdownDuringAnEndingIsSafe)
{
    for (int round = 0; round < 50; ++round) {
        auto pool = makePool(2, 4);
        OwnTask first([] { pthread_exit(nullptr); });
        OwnTask second([] { pthread_exit(nullptr); });
        EXPECT_TRUE(pool->add(first));
        EXPECT_TRUE(pool->add(second));
        pool->shutdown(true);
        pool.reset();
        EXPECT_EQ(Task::TSF_FINISHED, first.status());
        EXPECT_EQ(Task::TSF_FINISHED, second.status());
    }
}

}
