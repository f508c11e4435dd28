#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/mt/Thread.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <log/Loggers.hpp>
#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

#include "Work.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Found;
using mttest::Keys;
using mttest::OwnTask;
using mttest::refusal;
using mttest::Work;
using nim::mem::RcoRef;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
using qvtest::Caller;
using qvtest::Gate;
typedef std::chrono::steady_clock Clock;

static_assert(std::is_base_of_v<nim::type::Object, ThreadPool>);
static_assert(!std::is_copy_constructible_v<ThreadPool>);
static_assert(!std::is_copy_assignable_v<ThreadPool>);

std::unique_ptr<ThreadPool> makePool(unsigned int threads, unsigned int pending)
{
    return std::make_unique<ThreadPool>(nullptr, threads, 0U, 0U, 0U, 0U, pending);
}

/** Tasks that hold a number of workers until they are let go. */
class Occupation
{
public:
    Occupation(ThreadPool& pool, int workers)
    {
        for (int i = 0; i < workers; ++i) {
            auto entered = std::make_unique<Gate>();
            Gate& gate = *entered;
            tasks.push_back(std::make_unique<OwnTask>([this, &gate] {
                gate.open();
                leave.pass();
            }));
            EXPECT_TRUE(pool.add(*tasks.back()));
            gate.pass();
            gates.push_back(std::move(entered));
        }
    }
    ~Occupation()
    {
        end();
    }

    void end()
    {
        leave.open();
        for (const auto& task : tasks) {
            awaitEnd(*task);
        }
    }

    Gate leave;
    std::vector<std::unique_ptr<Gate>> gates;
    std::vector<std::unique_ptr<OwnTask>> tasks;
};

TEST(ThreadPool, IsCalledByItsName)
{
    EXPECT_STREQ("ThreadPool", ThreadPool::CLASS_NAME);
    nim::mt::activeThreadsFunction();
    EXPECT_EQ(-1, virtualSlot(&ThreadPool::shutdown));
}

TEST(ThreadPool, IsNamedAsToldOrNumbered)
{
    const ThreadPool named("Requests", 1, 9, 9, 9, 9, 1);
    EXPECT_EQ("Requests", named.name());
    const ThreadPool empty("", 1, 9, 9, 9, 9, 1);
    EXPECT_EQ("", empty.name());
    const auto unnamed = makePool(1, 1);
    EXPECT_EQ("ThreadPool" + std::to_string(unnamed->poolId()), unnamed->name());
}

TEST(ThreadPool, SharesItsNumbersWithTasks)
{
    const OwnTask before;
    const auto pool = makePool(1, 1);
    const OwnTask after;
    EXPECT_EQ(before.taskId() + 1, pool->poolId());
    EXPECT_EQ(pool->poolId() + 1, after.taskId());
}

TEST(ThreadPool, HasAsManyThreadsAsTold)
{
    const auto pool = makePool(3, 10);
    Occupation all(*pool, 3);
    OwnTask fourth;
    EXPECT_TRUE(pool->add(fourth));
    EXPECT_EQ(Task::TSF_QUEUED, fourth.status());
    all.end();
    awaitEnd(fourth);
}

TEST(ThreadPool, RunsATaskAsItsOwn)
{
    const auto pool = makePool(1, 1);
    const Task* task = nullptr;
    const Thread* thread = reinterpret_cast<const Thread*>(&task);
    const ThreadPool* current = nullptr;
    Task::TaskState state = Task::TSF_READY;
    OwnTask work([&] {
        task = Task::currentTask();
        thread = Thread::currentThread();
        current = ThreadPool::currentPool();
        state = task->status();
    });
    EXPECT_TRUE(pool->add(work));
    awaitEnd(work);
    EXPECT_EQ(&work, task);
    EXPECT_EQ(nullptr, thread);
    EXPECT_EQ(pool.get(), current);
    EXPECT_EQ(Task::TSF_RUNNING, state);
    EXPECT_EQ(nullptr, ThreadPool::currentPool());
}

TEST(ThreadPool, RunsATaskWithATarget)
{
    const auto pool = makePool(1, 1);
    const Task* current = nullptr;
    Work work([&] { current = Task::currentTask(); });
    Task task(work);
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(&task, current);
}

TEST(ThreadPool, FinishesATaskThatRunsAnotherInside)
{
    const auto pool = makePool(1, 1);
    Work work;
    Task inner(work);
    OwnTask outer([&] { inner.run(); });
    EXPECT_TRUE(pool->add(outer));
    EXPECT_TRUE(outer.waitForCompletion(60000) || outer.status() == Task::TSF_FINISHED);
    pool->shutdown();
    EXPECT_EQ(Task::TSF_FINISHED, outer.status());
    EXPECT_EQ(Task::TSF_FINISHED, inner.status());
}

/** Runs its target, and more. */
class Twice : public Task
{
public:
    explicit Twice(nim::mt::Runnable& target) : Task(target) {}

    void run() override
    {
        Task::run();
        first = status();
        Task::run();
    }

    TaskState first = TSF_READY;
};

TEST(ThreadPool, FinishesATaskThatFailsTheSecondTime)
{
    const auto pool = makePool(1, 1);
    int runs = 0;
    Work work([&] {
        if (++runs == 2) {
            throw std::runtime_error("second");
        }
    });
    Twice task(work);
    EXPECT_TRUE(pool->add(task));
    pool->shutdown();
    EXPECT_EQ(Task::TSF_FINISHED, task.first);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
    EXPECT_EQ(2, runs);
}

TEST(ThreadPool, DropsWhatATaskThrows)
{
    logtest::DefaultLogger logger;
    const auto pool = makePool(1, 5);
    OwnTask known([] { throw std::runtime_error("no more"); });
    OwnTask unknown([] { throw 42; });
    Work failing([] { throw 42; });
    Task targeted(failing);
    OwnTask next;
    for (Task* const task :
         {static_cast<Task*>(&known), static_cast<Task*>(&unknown), &targeted, static_cast<Task*>(&next)}) {
        EXPECT_TRUE(pool->add(*task));
    }
    pool->shutdown(true);
    for (const Task* const task :
         {static_cast<Task*>(&known), static_cast<Task*>(&unknown), &targeted, static_cast<Task*>(&next)}) {
        EXPECT_EQ(Task::TSF_FINISHED, task->status());
    }
    EXPECT_EQ("", logger.taken());
}

TEST(ThreadPool, RefusesInItsOwnWordsAndOrder)
{
    const auto pool = makePool(1, 5);
    EXPECT_EQ("Attempt to add a NULL Task", refusal([&] { pool->add(nullptr, false, true, nullptr); }));
    OwnTask done;
    EXPECT_TRUE(pool->add(done));
    awaitEnd(done);
    EXPECT_EQ("Attempt to add a non-ready Task", refusal([&] { pool->add(done); }));
    pool->shutdown();
    OwnTask fresh;
    EXPECT_EQ("Attempt to add a NULL Task", refusal([&] { pool->add(nullptr, true, false, nullptr); }));
    EXPECT_EQ("Attempt to add a non-ready Task", refusal([&] { pool->add(done); }));
    EXPECT_EQ("ThreadPool already shutdown", refusal([&] { pool->add(fresh); }));
    EXPECT_EQ("ThreadPool already shutdown", refusal([&] { pool->add(&fresh, true, false); }));
    EXPECT_EQ(Task::TSF_FINISHED, done.status());
    EXPECT_EQ(Task::TSF_READY, fresh.status());
}

TEST(ThreadPool, RefusesEveryTaskThatIsNotReady)
{
    const auto pool = makePool(2, 5);
    Occupation both(*pool, 2);
    OwnTask queued;
    EXPECT_TRUE(pool->add(queued));
    EXPECT_EQ("Attempt to add a non-ready Task", refusal([&] { pool->add(queued); }));
    EXPECT_EQ("Attempt to add a non-ready Task", refusal([&] { pool->add(*both.tasks[0]); }));
    both.end();
    awaitEnd(queued);
}

TEST(ThreadPool, AdmitsNothingUnblockedWithoutALimit)
{
    const auto pool = makePool(2, 0);
    std::atomic<int> destroyed{0};
    OwnTask task(nullptr, &destroyed);
    EXPECT_FALSE(pool->add(task, false));
    EXPECT_FALSE(pool->add(&task, true, false));
    EXPECT_EQ(Task::TSF_READY, task.status());
    EXPECT_EQ(0, destroyed);
    // Blocking, it is handed over to a worker.
    EXPECT_TRUE(pool->add(task, true));
    awaitEnd(task);
}

TEST(ThreadPool, AdmitsUnblockedUpToItsLimit)
{
    const auto pool = makePool(2, 2);
    OwnTask idle;
    EXPECT_TRUE(pool->add(idle, false)) << "fewer tasks than workers: none is pending";
    awaitEnd(idle);
    Occupation both(*pool, 2);
    OwnTask first;
    OwnTask second;
    OwnTask third;
    EXPECT_TRUE(pool->add(first, false));
    EXPECT_TRUE(pool->add(second, false));
    EXPECT_FALSE(pool->add(third, false));
    EXPECT_FALSE(pool->add(&third, true, false)) << "it stays the caller's";
    EXPECT_EQ(Task::TSF_READY, third.status());
    both.end();
    awaitEnd(first);
    awaitEnd(second);
    EXPECT_TRUE(pool->add(third));
    awaitEnd(third);
}

TEST(ThreadPool, WaitsForRoom)
{
    const auto pool = makePool(1, 1);
    Occupation worker(*pool, 1);
    OwnTask first;
    OwnTask second;
    EXPECT_TRUE(pool->add(first));
    bool added = false;
    Caller adder([&] { added = pool->add(second); });
    EXPECT_TRUE(adder.awaitAsleep());
    EXPECT_EQ(Task::TSF_QUEUED, second.status());
    worker.end();
    adder.join();
    EXPECT_TRUE(added);
    awaitEnd(first);
    awaitEnd(second);
}

/** Content whose copy, made by an adder, waits. */
class SlowContent : public nim::mem::RefCntObject, public nim::type::Cloneable
{
public:
    SlowContent(Gate& copyEntered, Gate& copyLeave) : entered(copyEntered), leave(copyLeave) {}
    ~SlowContent() noexcept override = default;
    nim::type::Cloneable* clone(bool) const override
    {
        entered.open();
        leave.pass();
        return new SlowContent(entered, leave);
    }

private:
    Gate& entered;
    Gate& leave;
};

TEST(ThreadPool, WaitsUnblockedForThoseWhoOvertookIt)
{
    const auto pool = makePool(1, 1);
    Occupation worker(*pool, 1);
    Gate entered;
    Gate leave;
    nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
    context->add(nim::mem::RefCntObjectRef(new SlowContent(entered, leave)),
                 nim::type::Context::allocateKey(2));
    OwnTask late;
    OwnTask first;
    bool added = false;
    Caller adder([&] { added = pool->add(late, false, context.get()); });
    entered.pass();
    // The adder has seen room, and here it goes.
    EXPECT_TRUE(pool->add(first, false));
    leave.open();
    EXPECT_TRUE(adder.awaitAsleep()) << "the capacity of the queue stands behind the limit";
    EXPECT_EQ(Task::TSF_QUEUED, late.status());
    worker.end();
    adder.join();
    EXPECT_TRUE(added);
    awaitEnd(first);
    awaitEnd(late);
}

TEST(ThreadPool, TakesTasksFromItsTasks)
{
    const auto pool = makePool(2, 2);
    OwnTask inner;
    OwnTask outer([&] { EXPECT_TRUE(ThreadPool::currentPool()->add(inner)); });
    EXPECT_TRUE(pool->add(outer));
    awaitEnd(outer);
    awaitEnd(inner);
}

/** A counted task. */
class CountedTask : public Task, public nim::mem::RefCntObject
{
public:
    explicit CountedTask(std::atomic<int>& destroyedTasks, mttest::Call taskCall = nullptr)
        : Task(nullptr, nullptr), destroyed(destroyedTasks), call(std::move(taskCall))
    {
    }
    ~CountedTask() override
    {
        ++destroyed;
    }

    void run() override
    {
        if (call) {
            call();
        }
    }

private:
    std::atomic<int>& destroyed;
    mttest::Call call;
};

TEST(ThreadPoolManaged, DeletesWhatHasRun)
{
    std::atomic<int> destroyed{0};
    std::atomic<int> runs{0};
    const auto pool = makePool(2, 3);
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }, &destroyed), true));
    }
    pool->shutdown(true);
    EXPECT_EQ(50, runs);
    EXPECT_EQ(50, destroyed);
}

TEST(ThreadPoolManaged, HoldsAReferenceOfWhatIsCounted)
{
    std::atomic<int> destroyed{0};
    const auto pool = makePool(1, 2);
    {
        Occupation worker(*pool, 1);
        auto* const task = new CountedTask(destroyed);
        RcoRef<CountedTask> kept(task);
        EXPECT_TRUE(pool->add(task, true));
        EXPECT_EQ(2U, kept->refCount());
        EXPECT_TRUE(pool->add(new CountedTask(destroyed), true));
        worker.end();
        awaitEnd(*kept);
        while (kept->refCount() != 1) {
            std::this_thread::yield();
        }
    }
    pool->shutdown(true);
    EXPECT_EQ(2, destroyed);
}

TEST(ThreadPoolManaged, GoesWithAnEndedPool)
{
    std::atomic<int> destroyed{0};
    std::atomic<int> runs{0};
    OwnTask unmanaged([&] { ++runs; });
    auto pool = makePool(1, 5);
    Occupation worker(*pool, 1);
    EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }, &destroyed), true));
    EXPECT_TRUE(pool->add(new CountedTask(destroyed, [&] { ++runs; }), true));
    EXPECT_TRUE(pool->add(unmanaged));
    pool->shutdown(false);
    EXPECT_EQ(2, destroyed);
    EXPECT_EQ(Task::TSF_QUEUED, unmanaged.status());
    worker.end();
    pool.reset();
    EXPECT_EQ(0, runs);
    EXPECT_EQ(Task::TSF_QUEUED, unmanaged.status()) << "for good";
}

TEST(ThreadPoolManaged, StaysTheCallersWhenAddFails)
{
    const Keys keys;
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(new Content(-1)), keys.deep);
    std::atomic<int> destroyed{0};
    const auto pool = makePool(1, 2);
    OwnTask task(nullptr, &destroyed);
    testing::internal::CaptureStderr();
    EXPECT_THROW(pool->add(&task, true), std::runtime_error);
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "nothing half-made is left";
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(Task::TSF_QUEUED, task.status());
    EXPECT_EQ("Attempt to add a non-ready Task", refusal([&] { pool->add(task); }));
    auto* const counted = new CountedTask(destroyed);
    const RcoRef<CountedTask> kept(counted);
    EXPECT_THROW(pool->add(counted, true), std::runtime_error);
    EXPECT_EQ(1U, kept->refCount());
    keys.removeAll();
}

TEST(ThreadPoolShutdown, RunsAllThatIsQueued)
{
    std::atomic<int> runs{0};
    const auto pool = makePool(2, 100);
    std::deque<OwnTask> tasks;
    for (int i = 0; i < 60; ++i) {
        tasks.emplace_back([&] { ++runs; });
        EXPECT_TRUE(pool->add(tasks.back()));
    }
    pool->shutdown(true);
    EXPECT_EQ(60, runs);
    for (const OwnTask& task : tasks) {
        EXPECT_EQ(Task::TSF_FINISHED, task.status());
    }
}

TEST(ThreadPoolShutdown, IsSynchronousByDefault)
{
    const auto pool = makePool(1, 2);
    Occupation worker(*pool, 1);
    OwnTask task;
    EXPECT_TRUE(pool->add(task));
    Caller ender([&] { pool->shutdown(); });
    EXPECT_TRUE(ender.awaitAsleep());
    worker.end();
    ender.join();
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(ThreadPoolShutdown, WaitsForWorkersThatBecomeFreeInTime)
{
    const auto pool = makePool(2, 2);
    std::atomic<bool> slowEnded{false};
    Gate entered;
    Gate leave;
    OwnTask slow([&] {
        entered.open();
        leave.pass();
        slowEnded = true;
    });
    EXPECT_TRUE(pool->add(slow));
    entered.pass();
    // The other worker takes the probe; then all are waited for, however long.
    std::atomic<bool> sawItEnd{false};
    Caller ender([&] {
        pool->shutdown(false);
        sawItEnd = slowEnded.load();
    });
    EXPECT_TRUE(ender.awaitAsleep());
    leave.open();
    ender.join();
    EXPECT_TRUE(sawItEnd);
}

TEST(ThreadPoolShutdown, LeavesBusyWorkersAloneAfterASecond)
{
    auto pool = makePool(1, 2);
    Gate entered;
    Gate leave;
    const ThreadPool* after = nullptr;
    OwnTask busy([&] {
        entered.open();
        leave.pass();
        // To be compared, no more: it is gone.
        after = ThreadPool::currentPool();
    });
    EXPECT_TRUE(pool->add(busy));
    entered.pass();
    const ThreadPool* const address = pool.get();
    const Clock::time_point start = Clock::now();
    pool->shutdown(false);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(995));
    EXPECT_EQ(Task::TSF_RUNNING, busy.status());
    pool.reset();
    leave.open();
    awaitEnd(busy);
    EXPECT_EQ(address, after);
}

TEST(ThreadPoolShutdown, DropsWhatAPoolWithoutWorkersHas)
{
    std::atomic<int> destroyed{0};
    const auto pool = makePool(0, 2);
    OwnTask kept;
    EXPECT_TRUE(pool->add(kept, false));
    EXPECT_TRUE(pool->add(new OwnTask(nullptr, &destroyed), true, false));
    OwnTask third;
    EXPECT_FALSE(pool->add(third, false));
    const Clock::time_point start = Clock::now();
    pool->shutdown(false);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(995)) << "nobody takes the probe";
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(Task::TSF_QUEUED, kept.status());
}

TEST(ThreadPoolShutdown, HappensOnce)
{
    const auto pool = makePool(1, 2);
    pool->shutdown(true, true);
    pool->shutdown(true);
    pool->shutdown(false, true);
    pool->shutdown();
    OwnTask task;
    EXPECT_EQ("ThreadPool already shutdown", refusal([&] { pool->add(task); }));
}

TEST(ThreadPoolShutdown, IsThatOfTheDestructorToo)
{
    std::atomic<int> destroyed{0};
    for (int round = 0; round < 20; ++round) {
        auto pool = makePool(3, 4);
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(pool->add(new OwnTask(nullptr, &destroyed), true));
        }
    }
    EXPECT_EQ(200, destroyed) << "all have run or were dropped";
}

class ThreadPoolContext : public testing::Test
{
protected:
    ~ThreadPoolContext() noexcept override
    {
        keys.removeAll();
    }

    Keys keys;
    std::unique_ptr<ThreadPool> pool = makePool(1, 5);
};

TEST_F(ThreadPoolContext, FollowsTheRulesOfDuplication)
{
    keys.fileAll(7);
    Found found;
    OwnTask task([&] { found.look(keys); });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(nullptr, found.left);
    EXPECT_EQ(Keys::here(keys.shared), found.shared);
    ASSERT_TRUE(found.shallow);
    EXPECT_NE(Keys::here(keys.shallow), found.shallow.get());
    EXPECT_EQ(Content::SHALLOW, found.shallow->origin);
    EXPECT_EQ(7, found.shallow->value);
    ASSERT_TRUE(found.deep);
    EXPECT_EQ(Content::DEEP, found.deep->origin);
}

TEST_F(ThreadPoolContext, IsThatOfTheAdd)
{
    auto* const content = new Content(1);
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(content), keys.shallow);
    int seen = 0;
    bool later = true;
    OwnTask task([&] {
        seen = Keys::here(keys.shallow)->value;
        later = Keys::here(keys.shared) != nullptr;
    });
    {
        Occupation worker(*pool, 1);
        EXPECT_TRUE(pool->add(task));
        content->value = 2;
        keys.file(keys.shared, 3);
        worker.end();
    }
    awaitEnd(task);
    EXPECT_EQ(1, seen);
    EXPECT_FALSE(later);
}

TEST_F(ThreadPoolContext, IsEmptyForTheNextTask)
{
    keys.fileAll(7);
    OwnTask first([&] { keys.file(keys.left, 8); });
    EXPECT_TRUE(pool->add(first));
    keys.removeAll();
    bool none = false;
    OwnTask second([&] { none = keys.noneHere(); });
    EXPECT_TRUE(pool->add(second));
    awaitEnd(second);
    EXPECT_TRUE(none);
}

TEST_F(ThreadPoolContext, StaysOneObject)
{
    keys.fileAll(7);
    const nim::type::ContainerContext* contexts[2] = {nullptr, nullptr};
    OwnTask first([&] { contexts[0] = nim::type::ContainerContext::current().get(); });
    OwnTask second([&] { contexts[1] = nim::type::ContainerContext::current().get(); });
    EXPECT_TRUE(pool->add(first));
    EXPECT_TRUE(pool->add(second));
    awaitEnd(second);
    EXPECT_NE(nullptr, contexts[0]);
    EXPECT_EQ(contexts[0], contexts[1]);
}

TEST_F(ThreadPoolContext, IsLetGoAfterATask)
{
    const nim::mem::RefCntObjectRef shared = keys.file(keys.shared, 1);
    const std::uint32_t before = shared->refCount();
    OwnTask task;
    EXPECT_TRUE(pool->add(task));
    while (shared->refCount() != before || task.status() != Task::TSF_FINISHED) {
        std::this_thread::yield();
    }
    // The worker is still there, and idle.
    OwnTask failing([] { throw 42; });
    EXPECT_TRUE(pool->add(failing));
    pool->shutdown(true);
    EXPECT_EQ(before, shared->refCount());
}

TEST_F(ThreadPoolContext, IsTheGivenOne)
{
    keys.file(keys.shallow, 1);
    nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
    context->add(nim::mem::RefCntObjectRef(new Content(9)), keys.deep);
    for (const bool block : {true, false}) {
        bool adders = true;
        int seen = 0;
        OwnTask task([&] {
            adders = Keys::here(keys.shallow) != nullptr;
            seen = Keys::here(keys.deep)->value;
        });
        EXPECT_TRUE(pool->add(task, block, context.get()));
        awaitEnd(task);
        EXPECT_FALSE(adders);
        EXPECT_EQ(9, seen);
    }
}

TEST_F(ThreadPoolContext, SharesTheSecurityContext)
{
    using nim::type::SecurityContext;
    const nim::type::ContextScope scope(SecurityContext::opCreate, nim::type::ContextScope::opRemove,
                                        SecurityContext::KEY, 0, nim::type::ContainerContext::current());
    const SecurityContext* const here = SecurityContext::current().get();
    ASSERT_NE(nullptr, here);
    const SecurityContext* there = nullptr;
    OwnTask task([&] { there = SecurityContext::current().get(); });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(here, there);
}

/** Whoever sees a task finished may destroy it, however closely. */
TEST(ThreadPoolEnd, IsFollowedByTheDestructorOfATask)
{
    const auto pool = makePool(2, 2);
    std::atomic<int> runs{0};
    Work work([&] { ++runs; });
    for (int round = 0; round < 5000; ++round) {
        auto targeted = std::make_unique<Task>(work);
        auto own = std::make_unique<OwnTask>([&] { ++runs; });
        EXPECT_TRUE(pool->add(*targeted));
        EXPECT_TRUE(pool->add(*own));
        while (targeted->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        targeted.reset();
        while (own->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        own.reset();
    }
    EXPECT_EQ(10000, runs);
}

}
