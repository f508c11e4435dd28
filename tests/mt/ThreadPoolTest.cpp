#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/mt/Thread.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <log/Loggers.hpp>
#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::makePool;
using mttest::Occupation;
using mttest::OwnTask;
using mttest::refusal;
using mttest::Work;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
using qvtest::Caller;
using qvtest::Gate;

static_assert(std::is_base_of_v<nim::type::Object, ThreadPool>);
static_assert(!std::is_copy_constructible_v<ThreadPool>);
static_assert(!std::is_copy_assignable_v<ThreadPool>);

TEST(ThreadPool, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("ThreadPool", ThreadPool::CLASS_NAME);
    nim::mt::activeThreadsFunction();
    EXPECT_EQ(-1, virtualSlot(&ThreadPool::shutdown));
}

TEST(ThreadPool, NameIsTheGivenOneOrTheClassNameWithTheId)
{
    const ThreadPool named("Requests", 1, 9, 9, 9, 9, 1);
    EXPECT_EQ("Requests", named.name());
    const ThreadPool empty("", 1, 9, 9, 9, 9, 1);
    EXPECT_EQ("", empty.name());
    const auto unnamed = makePool(1, 1);
    EXPECT_EQ("ThreadPool" + std::to_string(unnamed->poolId()), unnamed->name());
}

TEST(ThreadPool, IdIsFromTheSeriesOfTasks)
{
    const OwnTask before;
    const auto pool = makePool(1, 1);
    const OwnTask after;
    EXPECT_EQ(before.taskId() + 1, pool->poolId());
    EXPECT_EQ(pool->poolId() + 1, after.taskId());
}

TEST(ThreadPool, StartsTheGivenNumberOfWorkers)
{
    const auto pool = makePool(3, 10);
    Occupation all(*pool, 3);
    OwnTask fourth;
    EXPECT_TRUE(pool->add(fourth));
    EXPECT_EQ(Task::TSF_QUEUED, fourth.status());
    all.end();
    awaitEnd(fourth);
}

TEST(ThreadPool, TaskIsCurrentOnItsWorker)
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

TEST(ThreadPool, TaskThatRunsAnotherTaskIsFinished)
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

/** Runs its target twice. */
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

TEST(ThreadPool, TaskThatThrowsInASecondRunIsFinished)
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

TEST(ThreadPool, ExceptionOfATaskIsDiscarded)
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

TEST(ThreadPool, AddThrowsTheDocumentedMessagesInOrder)
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

TEST(ThreadPool, AddThrowsForEveryStateButReady)
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

TEST(ThreadPool, NonBlockingAddReturnsFalseWithALimitOfZero)
{
    const auto pool = makePool(2, 0);
    std::atomic<int> destroyed{0};
    OwnTask task(nullptr, &destroyed);
    EXPECT_FALSE(pool->add(task, false));
    EXPECT_FALSE(pool->add(&task, true, false));
    EXPECT_EQ(Task::TSF_READY, task.status());
    EXPECT_EQ(0, destroyed);
    // A blocking add hands the task to a worker.
    EXPECT_TRUE(pool->add(task, true));
    awaitEnd(task);
}

TEST(ThreadPool, NonBlockingAddReturnsFalseAtTheLimit)
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
    EXPECT_FALSE(pool->add(&third, true, false)) << "it remains the caller's";
    EXPECT_EQ(Task::TSF_READY, third.status());
    both.end();
    awaitEnd(first);
    awaitEnd(second);
    EXPECT_TRUE(pool->add(third));
    awaitEnd(third);
}

TEST(ThreadPool, AddBlocksWhileThePoolIsFull)
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

/** An entry whose copy, which the adding thread makes, waits. */
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

TEST(ThreadPool, NonBlockingAddDoesNotWaitIfAnotherThreadFillsTheQueue)
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
    // The adding thread has passed the check of the limit. Now another task fills the queue.
    EXPECT_TRUE(pool->add(first, false));
    leave.open();
    adder.join();
    EXPECT_TRUE(added) << "beyond the capacity of the queue, while the worker is busy";
    EXPECT_EQ(Task::TSF_QUEUED, first.status());
    EXPECT_EQ(Task::TSF_QUEUED, late.status());
    OwnTask refused;
    EXPECT_FALSE(pool->add(refused, false));
    worker.end();
    awaitEnd(first);
    awaitEnd(late);
}

TEST(ThreadPool, TasksThatAddWithoutBlockingToTheirOwnPoolDoNotDeadlock)
{
    constexpr int WORKERS = 2;
    const auto pool = makePool(WORKERS, 1);
    const unsigned int key = nim::type::Context::allocateKey(2);
    Gate leave;
    std::atomic<int> runs{0};
    std::deque<Gate> entered(WORKERS);
    std::deque<OwnTask> inner;
    std::deque<OwnTask> outer;
    for (int i = 0; i < WORKERS; ++i) {
        OwnTask& task = inner.emplace_back([&] { ++runs; });
        nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
        context->add(nim::mem::RefCntObjectRef(new SlowContent(entered[static_cast<std::size_t>(i)], leave)),
                     key);
        outer.emplace_back([&, context]() mutable { EXPECT_TRUE(pool->add(task, false, context.get())); });
        EXPECT_TRUE(pool->add(outer.back()));
        entered[static_cast<std::size_t>(i)].pass();
    }
    // Both workers have passed the check of the limit. Another task fills the queue, and no worker is free.
    OwnTask first([&] { ++runs; });
    EXPECT_TRUE(pool->add(first, false));
    leave.open();
    for (const OwnTask& task : outer) {
        awaitEnd(task);
    }
    pool->shutdown(true);
    EXPECT_EQ(WORKERS + 1, runs);
}

TEST(ThreadPool, TaskMayAddTasks)
{
    const auto pool = makePool(2, 2);
    OwnTask inner;
    OwnTask outer([&] { EXPECT_TRUE(ThreadPool::currentPool()->add(inner)); });
    EXPECT_TRUE(pool->add(outer));
    awaitEnd(outer);
    awaitEnd(inner);
}

}
