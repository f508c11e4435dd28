#include <dalnim/mt/Thread.hpp>

#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>
#include <dalnim/type/Cloneable.hpp>
#include <qv/pmx/thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

#include "Work.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::OwnTask;
using mttest::OwnThread;
using mttest::refusal;
using mttest::Work;
using nim::mt::Runnable;
using nim::mt::Task;
using nim::mt::Thread;
using qvtest::Caller;
using qvtest::Gate;

static_assert(std::is_base_of_v<Task, Thread>);
static_assert(!std::is_copy_constructible_v<Thread>);
static_assert(!std::is_constructible_v<Thread, bool, const char*, const char*>, "it is for derived classes");
static_assert(!std::is_constructible_v<Thread, Runnable&, const char (&)[4]>, "a name is no flag");
static_assert(!std::is_constructible_v<Thread, const char (&)[4]>, "a name is no flag");
static_assert(!std::is_convertible_v<bool, Thread>);

TEST(Thread, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("Thread", Thread::CLASS_NAME);
    EXPECT_EQ(virtualSlot(&Task::run), virtualSlot(&Thread::run));
    EXPECT_EQ(-1, virtualSlot(&Thread::join));
}

TEST(Thread, GivenNameIsUsedUnchanged)
{
    Work work;
    EXPECT_EQ("Reader", Thread(work, true, "Reader").name());
    EXPECT_EQ("Reader", Thread(&work, true, false, "Reader").name());
    EXPECT_EQ("Reader", Thread(true, "Reader").name());
    EXPECT_EQ("Reader", OwnThread("Reader", "Job").name());
}

TEST(Thread, DefaultNameIsTheLabelAndTheId)
{
    Work work;
    const Thread byReference(work);
    EXPECT_EQ("Thread" + std::to_string(byReference.taskId()), byReference.name());
    const Thread byPointer(&work);
    EXPECT_EQ("Thread" + std::to_string(byPointer.taskId()), byPointer.name());
    const Thread own(true);
    EXPECT_EQ("Thread" + std::to_string(own.taskId()), own.name());
    const OwnThread labelled(nullptr, "Job");
    EXPECT_EQ("Job" + std::to_string(labelled.taskId()), labelled.name());
    const OwnThread unlabelled(nullptr, nullptr);
    EXPECT_EQ("Task" + std::to_string(unlabelled.taskId()), unlabelled.name());
}

TEST(Thread, NullTargetThrows)
{
    EXPECT_EQ("Runnable target was NULL",
              refusal([] { const Thread thread(static_cast<Runnable*>(nullptr)); }));
    EXPECT_EQ("Runnable target was NULL",
              refusal([] { const Thread thread(static_cast<Runnable*>(nullptr), true, true, "x"); }));
    EXPECT_EQ("Runnable target was NULL",
              refusal([] { delete Thread::start(static_cast<Runnable*>(nullptr), true, true, "x"); }));
}

TEST(Thread, DeletesItsTargetIfItOwnsIt)
{
    std::atomic<int> destroyed{0};
    {
        Thread thread(new Work(nullptr, &destroyed), true, true);
        thread.start();
        thread.join();
        EXPECT_EQ(0, destroyed) << "not before the thread object is destroyed";
    }
    EXPECT_EQ(1, destroyed);
    {
        const Thread unstarted(new OwnTask(nullptr, &destroyed), true, true);
    }
    EXPECT_EQ(2, destroyed);
    Work work(nullptr, &destroyed);
    {
        const Thread byPointer(&work);
        const Thread byReference(work);
    }
    EXPECT_EQ(2, destroyed);
}

/** A task that records the state in which it is destroyed. */
class StateRecorder : public OwnTask
{
public:
    explicit StateRecorder(Task::TaskState& stateAtEnd) : state(stateAtEnd) {}
    ~StateRecorder() override
    {
        state = status();
    }

private:
    Task::TaskState& state;
};

TEST(Thread, StateOfAnOwnedTargetIsDestroyed)
{
    Task::TaskState state = Task::TSF_READY;
    {
        const Thread managing(new StateRecorder(state), true, true);
    }
    EXPECT_EQ(Task::TSF_DESTROYED, state);
    {
        StateRecorder target(state);
        {
            const Thread thread(target);
        }
        EXPECT_EQ(Task::TSF_READY, target.status()) << "the thread does not own it";
    }
    EXPECT_EQ(Task::TSF_READY, state);
}

TEST(Thread, ThreadIdIsThatOfTheCallingThread)
{
    ThreadID_t inside = 0;
    Work work([&] { inside = qv_si_thread_self(); });
    Thread thread(work);
    EXPECT_EQ(qv_si_thread_self(), thread.threadId());
    thread.start();
    thread.join();
    EXPECT_EQ(qv_si_thread_self(), thread.threadId());
    EXPECT_NE(inside, thread.threadId());
}

TEST(Thread, CurrentIsNullOnAForeignThread)
{
    EXPECT_EQ(nullptr, Thread::currentThread());
    const Thread* current = reinterpret_cast<const Thread*>(&current);
    std::thread([&] { current = Thread::currentThread(); }).join();
    EXPECT_EQ(nullptr, current);
}

TEST(Thread, RunsAPlainTarget)
{
    const Thread* current = nullptr;
    const Task* task = nullptr;
    const nim::mt::ThreadPool* pool = reinterpret_cast<const nim::mt::ThreadPool*>(&task);
    Task::TaskState state = Task::TSF_READY;
    Gate seen;
    Work work([&] {
        current = Thread::currentThread();
        task = Task::currentTask();
        pool = nim::mt::ThreadPool::currentPool();
        state = current->status();
        seen.open();
    });
    Thread thread(work);
    EXPECT_EQ(Task::TSF_READY, thread.status());
    thread.start();
    // Without this, `state` might be that of a join that has begun.
    seen.pass();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(&thread, current);
    EXPECT_EQ(&thread, task);
    EXPECT_EQ(nullptr, pool);
    EXPECT_EQ(Task::TSF_RUNNING, state);
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(Thread, StateOfATaskWithATargetFollows)
{
    const Task* task = nullptr;
    std::vector<Task::TaskState> states;
    Work work;
    Task* watched = nullptr;
    Thread* runner = nullptr;
    Gate seen;
    Work inner([&] {
        task = Task::currentTask();
        states = {watched->status(), runner->status()};
        seen.open();
    });
    Task target(inner);
    watched = &target;
    Thread thread(target);
    runner = &thread;
    thread.start();
    seen.pass();
    thread.join();
    EXPECT_EQ(&target, task);
    EXPECT_EQ((std::vector<Task::TaskState>{Task::TSF_RUNNING, Task::TSF_RUNNING}), states);
    EXPECT_EQ(Task::TSF_READY, target.status());
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(Thread, StateOfATaskThatOverridesRunFollows)
{
    const Task* task = nullptr;
    Task::TaskState state = Task::TSF_READY;
    const Task* watched = nullptr;
    Gate seen;
    OwnTask target([&] {
        task = Task::currentTask();
        state = watched->status();
        seen.open();
    });
    watched = &target;
    Thread thread(target);
    thread.start();
    seen.pass();
    thread.join();
    EXPECT_EQ(&thread, task) << "not the target";
    EXPECT_EQ(Task::TSF_RUNNING, state);
    EXPECT_EQ(Task::TSF_READY, target.status());
}

TEST(Thread, IsItsOwnTarget)
{
    Gate leave;
    Gate entered;
    const Task* current = nullptr;
    OwnThread thread([&] {
        current = Task::currentTask();
        entered.open();
        leave.pass();
    });
    thread.start();
    entered.pass();
    EXPECT_EQ(Task::TSF_RUNNING, thread.status());
    EXPECT_EQ("Thread not ready to be started", refusal([&] { thread.start(); }));
    leave.open();
    awaitEnd(thread);
    EXPECT_EQ("Thread not ready to be started", refusal([&] { thread.start(); }));
    thread.join();
    EXPECT_EQ(&thread, current);
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(Thread, JoinSetsTheStateBeforeItWaits)
{
    Gate leave;
    Gate entered;
    OwnTask target([&] {
        entered.open();
        leave.pass();
    });
    Thread thread(target);
    thread.start();
    entered.pass();
    Caller joiner([&] { thread.join(); });
    EXPECT_TRUE(joiner.awaitAsleep());
    EXPECT_EQ(Task::TSF_JOINED, thread.status());
    EXPECT_EQ(Task::TSF_JOINED, target.status());
    leave.open();
    joiner.join();
    EXPECT_EQ(Task::TSF_READY, thread.status());
    EXPECT_EQ(Task::TSF_READY, target.status());
}

TEST(Thread, IsStartedBeforeItRuns)
{
    Work work;
    Task target(work);
    Thread thread(target);
    // An entry that is copied with the starter's context sees both starting.
    class Witness : public nim::mem::RefCntObject, public nim::type::Cloneable
    {
    public:
        Witness(const Task& first, const Task& second, bool& starting) : a(first), b(second), seen(starting)
        {
        }
        ~Witness() noexcept override = default;
        nim::type::Cloneable* clone(bool) const override
        {
            seen = a.status() == Task::TSF_STARTING && b.status() == Task::TSF_STARTING;
            return new Witness(a, b, seen);
        }

    private:
        const Task& a;
        const Task& b;
        bool& seen;
    };
    bool starting = false;
    const unsigned int key = nim::type::Context::allocateKey(2);
    nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
    context->add(nim::mem::RefCntObjectRef(new Witness(target, thread, starting)), key);
    thread.start(context.get());
    thread.join();
    EXPECT_TRUE(starting);
}

TEST(Thread, JoinWithoutARunThrowsTheDocumentedMessages)
{
    Work work;
    Thread thread(work);
    EXPECT_EQ("Target already joined, or never existed", refusal([&] { thread.join(); }));
    EXPECT_EQ(Task::TSF_READY, thread.status());
    thread.start();
    thread.join();
    EXPECT_EQ("Target already joined, or never existed", refusal([&] { thread.join(); }));
    Thread detached(work, false);
    EXPECT_EQ("Thread is not joinable", refusal([&] { detached.join(); }));
}

TEST(Thread, StartCanDetachAThread)
{
    Work work;
    Thread thread(work, true);
    EXPECT_TRUE(thread.joinable());
    thread.start(false, nullptr);
    EXPECT_FALSE(thread.joinable());
    EXPECT_EQ("Thread is not joinable", refusal([&] { thread.join(); }));
    awaitEnd(thread);
    EXPECT_EQ("Thread not ready to be started", refusal([&] { thread.start(); }));
    EXPECT_EQ("Thread is not joinable", refusal([&] { thread.join(); }));
    EXPECT_EQ(Task::TSF_FINISHED, thread.status());
}

TEST(Thread, StartCanMakeAThreadJoinable)
{
    Work work;
    Thread thread(work, false);
    EXPECT_FALSE(thread.joinable());
    thread.start(true, nullptr);
    EXPECT_TRUE(thread.joinable());
    EXPECT_EQ(nullptr, thread.join());
}

TEST(Thread, StaticStartReturnsANewThread)
{
    std::atomic<int> runs{0};
    std::atomic<int> destroyed{0};
    Work work([&] { ++runs; });
    const std::unique_ptr<Thread> first(Thread::start(work, true, "first"));
    const std::unique_ptr<Thread> second(
        Thread::start(new Work([&] { ++runs; }, &destroyed), true, true, nullptr));
    const std::unique_ptr<Thread> third(Thread::start(work, false, "third"));
    EXPECT_EQ("first", first->name());
    EXPECT_EQ("Thread" + std::to_string(second->taskId()), second->name());
    EXPECT_FALSE(third->joinable());
    first->join();
    second->join();
    awaitEnd(*third);
    EXPECT_EQ(3, runs);
    EXPECT_EQ(0, destroyed);
}

TEST(Thread, RunsAgainAfterAJoin)
{
    int runs = 0;
    Work work([&] { ++runs; });
    Task target(work);
    Thread thread(target);
    for (int round = 1; round <= 20; ++round) {
        thread.start();
        EXPECT_EQ(nullptr, thread.join());
        EXPECT_EQ(round, runs);
    }
}

TEST(Thread, WaitForCompletionWorksForADetachedThread)
{
    Gate leave;
    Work work([&] { leave.pass(); });
    Thread thread(work, false);
    thread.start();
    bool finished = false;
    Caller waiter([&] { finished = thread.waitForCompletion(60000); });
    EXPECT_TRUE(waiter.awaitAsleep());
    leave.open();
    waiter.join();
    EXPECT_TRUE(finished);
}

/** A caller may destroy a detached thread as soon as its status is TSF_FINISHED. */
TEST(ThreadEnd, OwnerMayDestroyAFinishedTaskImmediately)
{
    std::atomic<int> runs{0};
    for (int round = 0; round < 500; ++round) {
        auto own = std::make_unique<OwnThread>([&] { ++runs; }, false);
        own->start();
        while (own->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        own.reset();
        auto joinable = std::make_unique<OwnThread>([&] { ++runs; });
        joinable->start();
        joinable->waitForCompletion(60000);
        while (joinable->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        joinable.reset();
    }
    EXPECT_EQ(1000, runs);
}

}
