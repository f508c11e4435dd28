#include <dalnim/mt/Thread.hpp>

#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>
#include <dalnim/type/ContextScope.hpp>
#include <dalnim/type/SecurityContext.hpp>
#include <qv/pmx/thread.h>
#include <qv/rtlapi/RX_Exception.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <pthread.h>

#include <log/Loggers.hpp>
#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

#include "Work.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::Content;
using mttest::Found;
using mttest::Keys;
using mttest::OwnTask;
using mttest::Work;
using nim::mt::Runnable;
using nim::mt::Task;
using nim::mt::Thread;
using nim::sys::system_error;
using nim::sys::internal::ThreadState;
using qvtest::Caller;
using qvtest::Gate;

static_assert(std::is_base_of_v<Task, Thread>);
static_assert(!std::is_copy_constructible_v<Thread>);
static_assert(!std::is_constructible_v<Thread, bool, const char*, const char*>, "it is for derived classes");
static_assert(!std::is_constructible_v<Thread, Runnable&, const char (&)[4]>, "a name is no flag");
static_assert(!std::is_constructible_v<Thread, const char (&)[4]>, "a name is no flag");
static_assert(!std::is_convertible_v<bool, Thread>);

/** What `call` says that it refuses for. */
template <class Refused>
std::string refusal(Refused call)
{
    try {
        call();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "nothing";
}

void awaitEnd(const Task& task)
{
    while (task.status() != Task::TSF_FINISHED) {
        std::this_thread::yield();
    }
}

/** A thread that is its own target. */
class OwnThread : public Thread
{
public:
    explicit OwnThread(mttest::Call threadCall, bool joinable = true) : Thread(joinable), call(std::move(threadCall))
    {
    }
    OwnThread(const char* name, const char* label) : Thread(true, name, label) {}

    void run() override
    {
        call();
    }

private:
    mttest::Call call;
};

TEST(Thread, IsCalledByItsName)
{
    EXPECT_STREQ("Thread", Thread::CLASS_NAME);
    EXPECT_EQ(virtualSlot(&Task::run), virtualSlot(&Thread::run));
    EXPECT_EQ(-1, virtualSlot(&Thread::join));
}

TEST(Thread, IsNamedAsTold)
{
    Work work;
    EXPECT_EQ("Reader", Thread(work, true, "Reader").name());
    EXPECT_EQ("Reader", Thread(&work, true, false, "Reader").name());
    EXPECT_EQ("Reader", Thread(true, "Reader").name());
    EXPECT_EQ("Reader", OwnThread("Reader", "Job").name());
}

TEST(Thread, IsNumberedBehindItsLabel)
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

TEST(Thread, RefusesToHaveNoTarget)
{
    EXPECT_EQ("Runnable target was NULL", refusal([] { const Thread thread(static_cast<Runnable*>(nullptr)); }));
    EXPECT_EQ("Runnable target was NULL",
              refusal([] { const Thread thread(static_cast<Runnable*>(nullptr), true, true, "x"); }));
    EXPECT_EQ("Runnable target was NULL",
              refusal([] { delete Thread::start(static_cast<Runnable*>(nullptr), true, true, "x"); }));
}

TEST(Thread, DeletesItsTargetWhenToldTo)
{
    std::atomic<int> destroyed{0};
    {
        Thread thread(new Work(nullptr, &destroyed), true, true);
        thread.start();
        thread.join();
        EXPECT_EQ(0, destroyed) << "not before the thread object goes";
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

/** A task that tells the state in which it is destroyed. */
class Dying : public OwnTask
{
public:
    explicit Dying(Task::TaskState& stateAtEnd) : state(stateAtEnd) {}
    ~Dying() override
    {
        state = status();
    }

private:
    Task::TaskState& state;
};

TEST(Thread, TellsAManagedTargetOfItsEnd)
{
    Task::TaskState state = Task::TSF_READY;
    {
        const Thread managing(new Dying(state), true, true);
    }
    EXPECT_EQ(Task::TSF_DESTROYED, state);
    {
        Dying target(state);
        {
            const Thread thread(target);
        }
        EXPECT_EQ(Task::TSF_READY, target.status()) << "it is not the thread's to end";
    }
    EXPECT_EQ(Task::TSF_READY, state);
}

TEST(Thread, NamesTheCallingThread)
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

TEST(Thread, IsNobodysOnAForeignThread)
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
    Work work([&] {
        current = Thread::currentThread();
        task = Task::currentTask();
        pool = nim::mt::ThreadPool::currentPool();
        state = current->status();
    });
    Thread thread(work);
    EXPECT_EQ(Task::TSF_READY, thread.status());
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
    EXPECT_EQ(&thread, current);
    EXPECT_EQ(&thread, task);
    EXPECT_EQ(nullptr, pool);
    EXPECT_EQ(Task::TSF_RUNNING, state);
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(Thread, MovesATaskWithATargetOfItsOwn)
{
    const Task* task = nullptr;
    std::vector<Task::TaskState> states;
    Work work;
    Task* watched = nullptr;
    Thread* runner = nullptr;
    Work inner([&] {
        task = Task::currentTask();
        states = {watched->status(), runner->status()};
    });
    Task target(inner);
    watched = &target;
    Thread thread(target);
    runner = &thread;
    thread.start();
    thread.join();
    EXPECT_EQ(&target, task);
    EXPECT_EQ((std::vector<Task::TaskState>{Task::TSF_RUNNING, Task::TSF_RUNNING}), states);
    EXPECT_EQ(Task::TSF_READY, target.status());
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(Thread, MovesATaskThatOverridesRun)
{
    const Task* task = nullptr;
    Task::TaskState state = Task::TSF_READY;
    const Task* watched = nullptr;
    OwnTask target([&] {
        task = Task::currentTask();
        state = watched->status();
    });
    watched = &target;
    Thread thread(target);
    thread.start();
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

TEST(Thread, IsJoinedBeforeTheWait)
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
    // Somebody who copies the starter's context sees both on their way.
    class Witness : public nim::mem::RefCntObject, public nim::type::Cloneable
    {
    public:
        Witness(const Task& first, const Task& second, bool& starting) : a(first), b(second), seen(starting) {}
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

TEST(Thread, RefusesAJoinInItsOwnWords)
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

TEST(Thread, IsDetachedByItsStart)
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

TEST(Thread, IsMadeJoinableByItsStart)
{
    Work work;
    Thread thread(work, false);
    EXPECT_FALSE(thread.joinable());
    thread.start(true, nullptr);
    EXPECT_TRUE(thread.joinable());
    EXPECT_EQ(nullptr, thread.join());
}

TEST(Thread, StartsNewObjects)
{
    std::atomic<int> runs{0};
    std::atomic<int> destroyed{0};
    Work work([&] { ++runs; });
    const std::unique_ptr<Thread> first(Thread::start(work, true, "first"));
    const std::unique_ptr<Thread> second(Thread::start(new Work([&] { ++runs; }, &destroyed), true, true, nullptr));
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

TEST(Thread, ConfirmsTheEndOfADetachedRun)
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

TEST(ThreadExceptions, GiveACloneToTheJoiner)
{
    Work work([] { throw system_error(5, "disk gone"); });
    Thread thread(work);
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(typeid(system_error), typeid(*error));
    EXPECT_STREQ("disk gone", error->what());
    EXPECT_EQ(5, dynamic_cast<const system_error*>(error)->error());
    EXPECT_EQ(Task::TSF_READY, thread.status());
}

TEST(ThreadExceptions, NameTheThreadOfAnUnknownOne)
{
    Work work([] { throw 42; });
    Thread thread(work, true, "Reader");
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(typeid(std::logic_error), typeid(*error));
    EXPECT_STREQ("Unknown Exception propagated from joinable thread 'Reader'", error->what());
}

/** An exception whose copy is none. */
class Changeling : public std::runtime_error, public nim::type::Cloneable
{
public:
    Changeling() : std::runtime_error("changeling") {}
    nim::type::Cloneable* clone(bool) const override
    {
        return new Content(0);
    }
};

TEST(ThreadExceptions, AreRaisedByTheJoinWhenTheyCannotBeKept)
{
    Work work([] { throw Changeling(); });
    Thread thread(work);
    thread.start();
    EXPECT_THROW(thread.join(), RX_Exception);
    EXPECT_NE(Task::TSF_READY, thread.status()) << "the rest of the join is left out";
    EXPECT_EQ("Thread not ready to be started", refusal([&] { thread.start(); }));
    EXPECT_THROW(thread.join(), RX_Exception) << "and so are its marks of being over";
}

/** Threads get a stack that no system has, until the end of the scope. */
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&attributes);
        pthread_attr_t huge = attributes;
        pthread_attr_setstacksize(&huge, std::size_t(1) << 50);
        pthread_setattr_default_np(&huge);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
    ~NoThreads()
    {
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }

private:
    pthread_attr_t attributes;
};

TEST(ThreadExceptions, LeaveAThreadStartingThatTheSystemRefuses)
{
    std::atomic<int> runs{0};
    Work work([&] { ++runs; });
    for (const bool joinable : {true, false}) {
        OwnTask target([&] { ++runs; });
        Thread thread(target, joinable);
        {
            const NoThreads refused;
            try {
                thread.start();
                ADD_FAILURE() << "nothing was thrown";
            } catch (const RX_Exception& error) {
                EXPECT_EQ(11, error.getCode());
            }
        }
        EXPECT_EQ(Task::TSF_STARTING, thread.status());
        EXPECT_EQ(Task::TSF_STARTING, target.status());
        EXPECT_EQ("Thread not ready to be started", refusal([&] { thread.start(); }));
    }
    EXPECT_EQ(0, runs);
}

TEST(ThreadExceptions, LastUntilTheNextRun)
{
    bool fails = true;
    Work work([&] {
        if (fails) {
            throw std::runtime_error("first");
        }
    });
    Thread thread(work);
    thread.start();
    const std::exception* const error = thread.join();
    ASSERT_NE(nullptr, error);
    EXPECT_STREQ("first", error->what());
    fails = false;
    EXPECT_STREQ("first", error->what());
    thread.start();
    EXPECT_EQ(nullptr, thread.join());
}

TEST(ThreadExceptions, EndTheStateOfATargetToo)
{
    Work work([] { throw std::runtime_error("no more"); });
    Task target(work);
    Thread thread(target, false);
    const logtest::DefaultLogger logger;
    thread.start();
    awaitEnd(thread);
    EXPECT_EQ(Task::TSF_FINISHED, target.status());
}

TEST(ThreadExceptions, AreNotLoggedForAJoiner)
{
    logtest::DefaultLogger logger;
    for (const bool known : {true, false}) {
        Work work([known] {
            if (known) {
                throw std::runtime_error("no more");
            }
            throw 42;
        });
        Thread thread(work);
        thread.start();
        EXPECT_NE(nullptr, thread.join());
    }
    EXPECT_EQ("", logger.taken());
}

/** What a detached run of `call` logs. */
nim::String logged(logtest::DefaultLogger& logger, mttest::Call call)
{
    Work work(std::move(call));
    Thread thread(work, false, "Reader");
    thread.start();
    awaitEnd(thread);
    return logger.taken();
}

TEST(ThreadExceptions, AreLoggedOfADetachedRun)
{
    logtest::DefaultLogger logger;
    EXPECT_EQ("global WARNING Thread : Exception from detached thread 'Reader' discarded : no more\n",
              logged(logger, [] { throw std::runtime_error("no more"); }));
    EXPECT_EQ("global WARNING Thread : Exception from detached thread 'Reader' discarded : 5 : disk gone",
              logtest::firstLine(logged(logger, [] { throw system_error(5, "disk gone"); })));
    EXPECT_EQ("global ERROR Thread : Unknown exception propagated from detached thread 'Reader'.\n",
              logged(logger, [] { throw 42; }));
    EXPECT_EQ("", logged(logger, [] {}));
}

TEST(ThreadExceptions, AreDroppedBehindAClosedGate)
{
    logtest::DefaultLogger logger;
    logger->setSeverity(nim::log::Severity_ERROR);
    logger.taken();
    EXPECT_EQ("", logged(logger, [] { throw std::runtime_error("no more"); }));
    EXPECT_EQ("global ERROR Thread : Unknown exception propagated from detached thread 'Reader'.\n",
              logged(logger, [] { throw 42; }));
    logger->setSeverity(nim::log::Severity_FATAL);
    logger.taken();
    EXPECT_EQ("", logged(logger, [] { throw 42; }));
}

/** A target that every write to fails. */
class Refusing : public std::streambuf
{
protected:
    int_type overflow(int_type) override
    {
        throw 42;
    }
    std::streamsize xsputn(const char*, std::streamsize) override
    {
        throw std::runtime_error("refused");
    }
};

TEST(ThreadExceptions, DoNotEndTheProcessWhenTheyCannotBeLogged)
{
    logtest::DefaultLogger logger;
    Refusing refusing;
    std::streambuf* const old = static_cast<std::ios&>(logger.sink).rdbuf(&refusing);
    logger.sink.exceptions(std::ios::badbit);
    {
        const logtest::Captured errors(std::cerr);
        Work work([] { throw std::runtime_error("no more"); });
        Thread thread(work, false);
        thread.start();
        awaitEnd(thread);
        Work unknown([] { throw 42; });
        Thread other(unknown, false);
        other.start();
        awaitEnd(other);
    }
    logger.sink.exceptions(std::ios::goodbit);
    static_cast<std::ios&>(logger.sink).rdbuf(old);
    logger.sink.clear();
}

class ThreadContext : public testing::Test
{
protected:
    ~ThreadContext() override
    {
        keys.removeAll();
    }

    Keys keys;
};

TEST_F(ThreadContext, FollowsTheRulesOfDuplication)
{
    keys.fileAll(7);
    const Content* const source = Keys::here(keys.shared);
    const Content* const cloned = Keys::here(keys.shallow);
    for (const bool joinable : {true, false}) {
        Found found;
        Work work([&] { found.look(keys); });
        Thread thread(work, joinable);
        thread.start();
        if (joinable) {
            thread.join();
        } else {
            awaitEnd(thread);
        }
        EXPECT_EQ(nullptr, found.left);
        EXPECT_EQ(source, found.shared);
        ASSERT_TRUE(found.shallow);
        EXPECT_NE(cloned, found.shallow.get());
        EXPECT_EQ(Content::SHALLOW, found.shallow->origin);
        EXPECT_EQ(7, found.shallow->value);
        ASSERT_TRUE(found.deep);
        EXPECT_EQ(Content::DEEP, found.deep->origin);
    }
    EXPECT_NE(nullptr, Keys::here(keys.left)) << "the starter keeps all";
}

TEST_F(ThreadContext, IsThatOfTheStart)
{
    auto* const content = new Content(1);
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(content), keys.shallow);
    int seen = 0;
    bool later = true;
    Gate enter;
    OwnThread thread([&] {
        enter.pass();
        seen = Keys::here(keys.shallow)->value;
        later = Keys::here(keys.shared) != nullptr;
    });
    thread.start();
    content->value = 2;
    keys.file(keys.shared, 3);
    enter.open();
    thread.join();
    EXPECT_EQ(1, seen);
    EXPECT_FALSE(later);
}

TEST_F(ThreadContext, IsTheGivenOne)
{
    keys.file(keys.shallow, 1);
    nim::type::ContainerContextRef context(new nim::sys::internal::CurrentContext);
    context->add(nim::mem::RefCntObjectRef(new Content(9)), keys.deep);
    bool starters = true;
    int seen = 0;
    Work work([&] {
        starters = Keys::here(keys.shallow) != nullptr;
        seen = Keys::here(keys.deep)->value;
    });
    Thread thread(work);
    thread.start(context.get());
    thread.join();
    EXPECT_FALSE(starters);
    EXPECT_EQ(9, seen);
    seen = 0;
    const std::unique_ptr<Thread> another(Thread::start(work, true, nullptr, context.get()));
    another->join();
    EXPECT_EQ(9, seen);
}

TEST_F(ThreadContext, IsEmptyWithoutAny)
{
    bool none = false;
    Work work([&] { none = keys.noneHere(); });
    Thread thread(work);
    thread.start();
    thread.join();
    EXPECT_TRUE(none);
}

/** Content that looks for the context of the thread on which it goes. */
class Farewell : public nim::mem::RefCntObject
{
public:
    Farewell(const Keys& itsKeys, const nim::type::ContainerContext*& seenContext, bool& seenEmpty)
        : keys(itsKeys), context(seenContext), empty(seenEmpty)
    {
    }
    ~Farewell() noexcept override
    {
        context = nim::type::ContainerContext::current().get();
        empty = keys.noneHere();
    }

private:
    const Keys& keys;
    const nim::type::ContainerContext*& context;
    bool& empty;
};

TEST_F(ThreadContext, IsEmptyAndTheSameObjectWhenItsContentGoes)
{
    const nim::type::ContainerContext* during = nullptr;
    const nim::type::ContainerContext* after = nullptr;
    bool empty = false;
    OwnThread thread([&] {
        const nim::type::ContainerContextRef current = nim::type::ContainerContext::current();
        during = current.get();
        nim::type::ContainerContextRef(current)->add(
            nim::mem::RefCntObjectRef(new Farewell(keys, after, empty)), keys.left);
        keys.file(keys.shared, 1);
    });
    thread.start();
    thread.join();
    EXPECT_NE(nullptr, during);
    EXPECT_EQ(during, after);
    EXPECT_TRUE(empty);
}

TEST_F(ThreadContext, SharesTheSecurityContext)
{
    using nim::type::SecurityContext;
    const nim::type::ContextScope scope(SecurityContext::opCreate, nim::type::ContextScope::opRemove,
                                        SecurityContext::KEY, 0, nim::type::ContainerContext::current());
    const SecurityContext* const here = SecurityContext::current().get();
    ASSERT_NE(nullptr, here);
    const SecurityContext* there = nullptr;
    const SecurityContext* deeper = nullptr;
    OwnThread thread([&] {
        there = SecurityContext::current().get();
        OwnThread inner([&] { deeper = SecurityContext::current().get(); });
        inner.start();
        inner.join();
    });
    thread.start();
    thread.join();
    EXPECT_EQ(here, there);
    EXPECT_EQ(here, deeper);
}

TEST_F(ThreadContext, LetsGoOfWhatItHadAtTheEnd)
{
    const nim::mem::RefCntObjectRef shared = keys.file(keys.shared, 1);
    const std::uint32_t before = shared->refCount();
    Work work;
    Thread thread(work, false);
    thread.start();
    awaitEnd(thread);
    while (shared->refCount() != before) {
        std::this_thread::yield();
    }
    Thread joined(work);
    joined.start();
    joined.join();
    EXPECT_EQ(before, shared->refCount());
}

TEST_F(ThreadContext, LeavesTheStateWhenItCannotBeCopied)
{
    nim::type::ContainerContext::current()->add(nim::mem::RefCntObjectRef(new Content(-1)), keys.deep);
    Work work;
    Task target(work);
    Thread thread(target);
    EXPECT_THROW(thread.start(), std::runtime_error);
    EXPECT_EQ(Task::TSF_STARTING, thread.status());
    EXPECT_EQ(Task::TSF_STARTING, target.status());
}

/** Whoever sees a detached thread finished may destroy it, however closely. */
TEST(ThreadEnd, IsFollowedByTheDestructor)
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
