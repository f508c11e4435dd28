#include <dalnim/mt/ThreadPool.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

#include <pthread.h>

#include <qv/Threads.hpp>

#include "Pools.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::Content;
using mttest::Keys;
using mttest::makePool;
using mttest::OwnTask;
using mttest::Work;
using nim::mt::Task;
using nim::mt::ThreadPool;
using qvtest::Caller;
using qvtest::Gate;

/** The arguments and the state of the thread in the last call of a handler. */
struct Heard
{
    ThreadPool::ExceptionHandler handler()
    {
        return [this](const Task* failed, const std::exception* known, const std::exception_ptr& pointer) {
            ++calls;
            task = failed;
            text = known != nullptr ? known->what() : "unknown";
            exception = pointer;
            current = Task::currentTask();
            pool = ThreadPool::currentPool();
            state = failed != nullptr ? failed->status() : Task::TSF_READY;
        };
    }

    std::atomic<int> calls{0};
    const Task* task = nullptr;
    std::string text;
    std::exception_ptr exception;
    const Task* current = nullptr;
    const ThreadPool* pool = nullptr;
    Task::TaskState state = Task::TSF_READY;
};

TEST(ThreadPoolException, HandlerIsCalledOnTheWorkerBeforeTheTaskIsFinished)
{
    const auto pool = makePool(1, 5);
    Heard heard;
    pool->setExceptionHandler(heard.handler());
    OwnTask task([] { throw std::runtime_error("no more"); });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(1, heard.calls);
    EXPECT_EQ(&task, heard.task);
    EXPECT_EQ(&task, heard.current);
    EXPECT_EQ(pool.get(), heard.pool);
    EXPECT_EQ(Task::TSF_RUNNING, heard.state);
    EXPECT_EQ("no more", heard.text);
    EXPECT_EQ(1U, pool->exceptionCount());
}

TEST(ThreadPoolException, HandlerHasTheContextOfTheTask)
{
    const Keys keys;
    const nim::mem::RefCntObjectRef entry = keys.insert(keys.shared, 7);
    const auto pool = makePool(1, 5);
    const Content* found = nullptr;
    pool->setExceptionHandler([&](const Task*, const std::exception*, const std::exception_ptr&) {
        found = Keys::find(keys.shared);
    });
    OwnTask task([] { throw 42; });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ(entry.get(), found);
    keys.removeAll();
}

TEST(ThreadPoolException, IsCountedWithoutAHandler)
{
    const auto pool = makePool(2, 5);
    EXPECT_EQ(0U, pool->exceptionCount());
    std::deque<OwnTask> tasks;
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(pool->add(tasks.emplace_back([i] {
            if (i % 2 == 0) {
                throw i;
            }
        })));
    }
    pool->shutdown(true);
    EXPECT_EQ(5U, pool->exceptionCount());
}

TEST(ThreadPoolException, UnknownTypeIsPassedByItsPointerOnly)
{
    const auto pool = makePool(1, 5);
    Heard heard;
    pool->setExceptionHandler(heard.handler());
    OwnTask task([] { throw 42; });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_EQ("unknown", heard.text);
    int thrown = 0;
    try {
        std::rethrow_exception(heard.exception);
    } catch (int number) {
        thrown = number;
    }
    EXPECT_EQ(42, thrown);
}

TEST(ThreadPoolException, SystemErrorHasItsTraceInTheHandler)
{
    const auto pool = makePool(1, 5);
    std::string trace;
    pool->setExceptionHandler([&](const Task*, const std::exception* known, const std::exception_ptr&) {
        trace = dynamic_cast<const nim::sys::StackTrace&>(*known).toString();
    });
    OwnTask task([] {
        const nim::sys::StackTrack track("serve()", "Order", "shop", 12);
        throw nim::sys::system_error(EPROTO);
    });
    EXPECT_TRUE(pool->add(task));
    awaitEnd(task);
    EXPECT_NE(std::string::npos, trace.find("shop.Order.serve():12")) << trace;
}

TEST(ThreadPoolException, ExceptionOfTheHandlerIsDiscarded)
{
    const auto pool = makePool(1, 5);
    std::atomic<int> calls{0};
    pool->setExceptionHandler([&](const Task*, const std::exception*, const std::exception_ptr&) {
        ++calls;
        throw std::logic_error("of the handler");
    });
    OwnTask first([] { throw 1; });
    OwnTask second([] { throw 2; });
    OwnTask last;
    for (OwnTask* const task : {&first, &second, &last}) {
        EXPECT_TRUE(pool->add(*task));
    }
    pool->shutdown(true);
    EXPECT_EQ(2, calls);
    for (const OwnTask* const task : {&first, &second, &last}) {
        EXPECT_EQ(Task::TSF_FINISHED, task->status());
    }
    EXPECT_EQ(2U, pool->exceptionCount());
}

TEST(ThreadPoolException, HandlerThatEndsItsThreadFinishesTheTask)
{
    const auto pool = makePool(1, 5);
    pool->setExceptionHandler(
        [&](const Task*, const std::exception*, const std::exception_ptr&) { pthread_exit(nullptr); });
    OwnTask failing([] { throw std::runtime_error("first"); });
    bool isClean = false;
    OwnTask next([&] { isClean = Task::currentTask() == &next && ThreadPool::currentPool() == pool.get(); });
    EXPECT_TRUE(pool->add(failing));
    EXPECT_TRUE(pool->add(next));
    pool->shutdown(true);
    EXPECT_EQ(Task::TSF_FINISHED, failing.status());
    EXPECT_EQ(Task::TSF_FINISHED, next.status());
    EXPECT_TRUE(isClean) << "another thread replaces the worker";
}

/** Throws after its target has run, when it is finished already. */
class LateFailure : public Task
{
public:
    explicit LateFailure(nim::mt::Runnable& target) : Task(target) {}

    void run() override
    {
        Task::run();
        throw std::runtime_error("late");
    }
};

TEST(ThreadPoolException, TaskThatIsFinishedAlreadyIsPassedAsNullUnlessThePoolOwnsIt)
{
    const auto pool = makePool(1, 5);
    Heard heard;
    pool->setExceptionHandler(heard.handler());
    Work work;
    LateFailure kept(work);
    EXPECT_TRUE(pool->add(kept));
    auto* const managed = new LateFailure(work);
    while (heard.calls != 1) {
        std::this_thread::yield();
    }
    OwnTask between;
    EXPECT_TRUE(pool->add(between));
    awaitEnd(between);
    EXPECT_EQ(nullptr, heard.task);
    EXPECT_TRUE(pool->add(managed, true));
    pool->shutdown(true);
    EXPECT_EQ(managed, heard.task);
    EXPECT_EQ(Task::TSF_FINISHED, heard.state);
    EXPECT_EQ(2, heard.calls);
}

TEST(ThreadPoolException, ReplacedHandlerIsDestroyedAndNotCalled)
{
    const auto pool = makePool(1, 5);
    const auto owned = std::make_shared<std::atomic<int>>(0);
    pool->setExceptionHandler(
        [owned](const Task*, const std::exception*, const std::exception_ptr&) { ++*owned; });
    OwnTask first([] { throw 1; });
    EXPECT_TRUE(pool->add(first));
    awaitEnd(first);
    EXPECT_EQ(1, *owned);
    Heard heard;
    pool->setExceptionHandler(heard.handler());
    OwnTask second([] { throw 2; });
    EXPECT_TRUE(pool->add(second));
    awaitEnd(second);
    EXPECT_EQ(1, owned.use_count());
    EXPECT_EQ(1, *owned);
    EXPECT_EQ(1, heard.calls);
    pool->setExceptionHandler(nullptr);
    OwnTask third([] { throw 3; });
    EXPECT_TRUE(pool->add(third));
    awaitEnd(third);
    EXPECT_EQ(1, heard.calls);
    EXPECT_EQ(3U, pool->exceptionCount());
}

TEST(ThreadPoolException, HandlerMayReplaceItself)
{
    const auto pool = makePool(1, 5);
    Heard heard;
    std::atomic<int> calls{0};
    const auto marker = std::make_shared<int>(5);
    int seen = 0;
    pool->setExceptionHandler([&, marker](const Task*, const std::exception*, const std::exception_ptr&) {
        ++calls;
        ThreadPool::currentPool()->setExceptionHandler(heard.handler());
        seen = *marker;
    });
    OwnTask first([] { throw 1; });
    OwnTask second([] { throw 2; });
    EXPECT_TRUE(pool->add(first));
    EXPECT_TRUE(pool->add(second));
    pool->shutdown(true);
    EXPECT_EQ(1, calls);
    EXPECT_EQ(5, seen) << "the handler exists until its call has returned";
    EXPECT_EQ(1, heard.calls);
    EXPECT_EQ(1, marker.use_count());
}

TEST(ThreadPoolException, TaskThatOutlivesItsPoolFindsNoHandler)
{
    auto pool = makePool(1, 2);
    const auto owned = std::make_shared<std::atomic<int>>(0);
    pool->setExceptionHandler(
        [owned](const Task*, const std::exception*, const std::exception_ptr&) { ++*owned; });
    Gate entered;
    Gate leave;
    OwnTask busy([&] {
        entered.open();
        leave.pass();
        throw std::runtime_error("after the pool");
    });
    EXPECT_TRUE(pool->add(busy));
    entered.pass();
    pool.reset();
    EXPECT_EQ(1, owned.use_count());
    leave.open();
    awaitEnd(busy);
    EXPECT_EQ(0, *owned);
}

TEST(ThreadPoolException, HandlersAreReplacedWhileTasksThrow)
{
    const auto pool = makePool(3, 100);
    std::atomic<unsigned int> heard{0};
    std::deque<OwnTask> tasks;
    Caller setter([&] {
        for (int i = 0; i < 300; ++i) {
            pool->setExceptionHandler(
                [&](const Task*, const std::exception*, const std::exception_ptr&) { ++heard; });
            if (i % 3 == 0) {
                pool->setExceptionHandler(nullptr);
            }
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_TRUE(pool->add(tasks.emplace_back([] { throw std::runtime_error("again"); })));
    }
    pool->shutdown(true);
    setter.join();
    EXPECT_EQ(300U, pool->exceptionCount());
    EXPECT_LE(heard, 300U);
}

}
