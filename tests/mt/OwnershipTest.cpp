#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Thread.hpp>

#include <dalnim/mem/RefCntObject.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include <pthread.h>

#include <log/Loggers.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::makePool;
using mttest::OwnTask;
using mttest::OwnThread;
using mttest::refusal;
using mttest::Work;
using nim::mem::RcoRef;
using nim::mt::Runnable;
using nim::mt::Task;
using nim::mt::Thread;

// ---- targets whose destructors throw -------------------------------------------------------

/** A target that calls a function in its destructor. */
class ThrowingTarget : public Runnable
{
public:
    explicit ThrowingTarget(mttest::Call destructorCall) : call(std::move(destructorCall)) {}
    ~ThrowingTarget() noexcept(false) override
    {
        call();
    }
    void run() override {}

private:
    mttest::Call call;
};

/** A task that calls a function in its destructor. */
class ThrowingTask : public Task
{
public:
    explicit ThrowingTask(mttest::Call destructorCall)
        : Task(nullptr, nullptr), call(std::move(destructorCall))
    {
    }
    ~ThrowingTask() noexcept(false) override
    {
        call();
    }
    void run() override {}

private:
    mttest::Call call;
};

/** A reference-counted ThrowingTarget. */
class CountedThrowingTarget : public ThrowingTarget, public nim::mem::RefCntObject
{
public:
    using ThrowingTarget::ThrowingTarget;
    ~CountedThrowingTarget() noexcept(false) override = default;
};

void throwKnown()
{
    throw std::runtime_error("no end");
}

TEST(Ownership, ExceptionOfATasksTargetIsLoggedByTheDestructor)
{
    logtest::DefaultLogger logger;
    {
        const Task task(new ThrowingTarget(throwKnown), true);
    }
    EXPECT_EQ("com.kor.dal.nim WARNING Ownership : Unexpected exception while destroying the target of a task"
              " : no end\n",
              logger.taken());
    {
        const Task task(new CountedThrowingTarget([] { throw nim::sys::system_error(5, "disk gone"); }),
                        true);
    }
    EXPECT_EQ("com.kor.dal.nim WARNING Ownership : Unexpected exception while destroying the target of a task"
              " : 5 : disk gone",
              logtest::firstLine(logger.taken()));
    {
        const Task task(new ThrowingTarget([] { throw 42; }), true);
    }
    EXPECT_EQ("com.kor.dal.nim WARNING Ownership : Unexpected exception while destroying the target of a task"
              " : Unknown exception\n",
              logger.taken());
}

TEST(Ownership, ExceptionOfAThreadsTargetIsLoggedByTheDestructor)
{
    logtest::DefaultLogger logger;
    {
        Thread thread(new ThrowingTarget(throwKnown), true, true);
        thread.start();
        EXPECT_EQ(nullptr, thread.join());
    }
    EXPECT_EQ(
        "com.kor.dal.nim WARNING Ownership : Unexpected exception while destroying the target of a thread"
        " : no end\n",
        logger.taken());
}

TEST(Ownership, ExceptionOfAManagedPoolTaskIsLoggedAndTheWorkerContinues)
{
    logtest::DefaultLogger logger;
    const auto pool = makePool(1, 5);
    EXPECT_TRUE(pool->add(new ThrowingTask(throwKnown), true));
    std::atomic<int> runs{0};
    EXPECT_TRUE(pool->add(new OwnTask([&] { ++runs; }), true));
    pool->shutdown(true);
    EXPECT_EQ("com.kor.dal.nim WARNING Ownership : Unexpected exception while destroying a task of a pool"
              " : no end\n",
              logger.taken());
    EXPECT_EQ(1, runs);
}

TEST(Ownership, ExceptionIsDiscardedIfTheSeverityIsDisabled)
{
    logtest::DefaultLogger logger;
    logger->setSeverity(nim::log::Severity_ERROR);
    logger.taken();
    {
        const Task task(new ThrowingTarget(throwKnown), true);
    }
    EXPECT_EQ("", logger.taken());
}

TEST(Ownership, DestructorOfATargetMayEndTheThread)
{
    for (const bool withThread : {false, true}) {
        OwnThread thread([withThread] {
            ThrowingTarget* const target = new ThrowingTarget([] { pthread_exit(nullptr); });
            if (withThread) {
                const Thread inner(target, true, true);
            } else {
                const Task inner(target, true);
            }
            throw std::runtime_error("not reached");
        });
        thread.start();
        EXPECT_EQ(nullptr, thread.join());
    }
}

TEST(Ownership, DestructorOfAManagedPoolTaskMayEndTheWorker)
{
    const auto pool = makePool(1, 5);
    EXPECT_TRUE(pool->add(new ThrowingTask([] { pthread_exit(nullptr); }), true));
    std::atomic<int> runs{0};
    OwnTask next([&] { ++runs; });
    EXPECT_TRUE(pool->add(next));
    pool->shutdown(true);
    EXPECT_EQ(1, runs);
    EXPECT_EQ(Task::TSF_FINISHED, next.status());
}

// ---- reference-counted targets --------------------------------------------------------------

class CountedWork : public Work, public nim::mem::RefCntObject
{
public:
    using Work::Work;
    ~CountedWork() override = default;
};

/** A reference-counted task that reports its state in its destructor. */
class CountedTask : public OwnTask, public nim::mem::RefCntObject
{
public:
    explicit CountedTask(Task::TaskState& stateAtEnd) : state(stateAtEnd) {}
    ~CountedTask() override
    {
        state = status();
    }

private:
    Task::TaskState& state;
};

TEST(CountedTarget, IsReferencedByItsTaskFromTheConstructorToTheDestructor)
{
    std::atomic<int> destroyed{0};
    RcoRef<CountedWork> work(new CountedWork(nullptr, &destroyed));
    {
        const Task task(work.get(), true);
        EXPECT_EQ(2U, work->refCount());
    }
    EXPECT_EQ(1U, work->refCount());
    EXPECT_EQ(0, destroyed);
    auto task = std::make_unique<Task>(work.get(), true);
    work.clear();
    EXPECT_EQ(0, destroyed) << "the task still references it";
    task->run();
    task.reset();
    EXPECT_EQ(1, destroyed);
}

/** A reference-counted runnable with a line of derived classes below it. */
class DerivedCountedWork : public CountedWork
{
public:
    using CountedWork::CountedWork;
    ~DerivedCountedWork() override = default;
};

/** The reference count comes from the first base class, the runnable from a later one. */
class CountedFirst : public nim::mem::RefCntObject, public Work
{
public:
    explicit CountedFirst(std::atomic<int>* destroyedWork) : Work(nullptr, destroyedWork) {}
    ~CountedFirst() override = default;
};

/** The runnable is a virtual base class. */
class VirtuallyCounted : public virtual Work, public virtual nim::mem::RefCntObject
{
public:
    explicit VirtuallyCounted(std::atomic<int>* destroyedWork) : Work(nullptr, destroyedWork) {}
    ~VirtuallyCounted() override = default;
};

template <class Counted>
void expectReferencedByItsTask(Counted* counted, const std::atomic<int>& destroyed)
{
    RcoRef<Counted> ref(counted);
    {
        const Task task(counted, true);
        EXPECT_EQ(2U, counted->refCount());
    }
    EXPECT_EQ(1U, counted->refCount());
    EXPECT_EQ(0, destroyed);
    ref.clear();
    EXPECT_EQ(1, destroyed);
}

TEST(CountedTarget, IsRecognisedInEveryKindOfDerivation)
{
    std::atomic<int> destroyed{0};
    expectReferencedByItsTask(new DerivedCountedWork(nullptr, &destroyed), destroyed);
    destroyed = 0;
    expectReferencedByItsTask(new CountedFirst(&destroyed), destroyed);
    destroyed = 0;
    expectReferencedByItsTask(new VirtuallyCounted(&destroyed), destroyed);
}

/** Reference-counted, but not publicly: its owner deletes it. */
class PrivatelyCounted : public Work, private nim::mem::RefCntObject
{
public:
    using Work::Work;
    ~PrivatelyCounted() override = default;
};

TEST(CountedTarget, PrivateReferenceCountIsIgnored)
{
    std::atomic<int> destroyed{0};
    {
        const Task task(new PrivatelyCounted(nullptr, &destroyed), true);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(CountedTarget, IsNotReferencedByATaskThatDoesNotOwnIt)
{
    const RcoRef<CountedWork> work(new CountedWork);
    RcoRef<CountedWork> other(work);
    const Task byPointer(other.get());
    const Task byReference(*other);
    const Thread thread(other.get());
    EXPECT_EQ(2U, work->refCount());
}

TEST(CountedTarget, IsReferencedByItsThreadFromTheConstructorToTheDestructor)
{
    std::atomic<int> destroyed{0};
    RcoRef<CountedWork> work(new CountedWork(nullptr, &destroyed));
    auto thread = std::make_unique<Thread>(work.get(), true, true);
    EXPECT_EQ(2U, work->refCount());
    work.clear();
    thread->start();
    EXPECT_EQ(nullptr, thread->join());
    EXPECT_EQ(0, destroyed);
    thread.reset();
    EXPECT_EQ(1, destroyed);
    std::unique_ptr<Thread> started(Thread::start(new CountedWork(nullptr, &destroyed), true, true, nullptr));
    EXPECT_EQ(nullptr, started->join());
    started.reset();
    EXPECT_EQ(2, destroyed);
}

TEST(CountedTarget, StateOfATargetThatIsReferencedElsewhereIsKept)
{
    Task::TaskState state = Task::TSF_READY;
    RcoRef<CountedTask> task(new CountedTask(state));
    {
        Thread thread(task.get(), true, true);
        thread.start();
        EXPECT_EQ(nullptr, thread.join());
    }
    EXPECT_EQ(Task::TSF_READY, task->status());
    {
        const Thread thread(task.get(), true, true);
        task.clear();
    }
    EXPECT_EQ(Task::TSF_DESTROYED, state) << "it was destroyed with the thread";
}

}
