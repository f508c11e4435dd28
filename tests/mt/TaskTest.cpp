#include <dalnim/mt/Task.hpp>

#include <dalnim/sys/SysError.hpp>
#include <dalnim/type/Cloneable.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ios>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

namespace {

namespace nim = com::kor::dal::nim;
using nim::mt::Runnable;
using nim::mt::Task;
using nim::sys::system_error;
using qvtest::Caller;
using qvtest::Gate;
typedef std::chrono::steady_clock Clock;
typedef std::chrono::milliseconds Ms;

constexpr unsigned int LONG = 60000;

static_assert(std::is_abstract_v<Runnable>);
static_assert(std::is_base_of_v<nim::type::Object, Runnable>);
static_assert(std::has_virtual_destructor_v<Runnable>);
static_assert(std::is_base_of_v<Runnable, Task>);
static_assert(!std::is_copy_constructible_v<Task>);
static_assert(!std::is_copy_assignable_v<Task>);
static_assert(!std::is_constructible_v<Task, const char*, const char*>, "it is for derived classes");
static_assert(!std::is_constructible_v<Task, Runnable*, const char (&)[4]>, "a name is no flag");
static_assert(std::is_same_v<unsigned long, decltype(std::declval<Task&>().interrupt(0UL))>);
static_assert(sizeof(Task::TaskState) == 4);
static_assert(Task::TSF_READY == 1);
static_assert(Task::TSF_QUEUED == 2);
static_assert(Task::TSF_STARTING == 4);
static_assert(Task::TSF_RUNNING == 8);
static_assert(Task::TSF_FINISHED == 16);
static_assert(Task::TSF_JOINED == 32);
static_assert(Task::TSF_DESTROYED == 64);
static_assert(Task::TSF_MASK_ACTIVE == 14);

/** A runnable that calls a function. */
class Work : public Runnable
{
public:
    explicit Work(std::function<void()> workCall = nullptr, int* destroyedWork = nullptr)
        : call(std::move(workCall)), destroyed(destroyedWork)
    {
    }
    ~Work() override
    {
        if (destroyed != nullptr) {
            ++*destroyed;
        }
    }

    void run() override
    {
        ++runs;
        if (call) {
            call();
        }
    }

    int runs = 0;

private:
    std::function<void()> call;
    int* destroyed;
};

/** A task that is its own target and exposes protected members. */
class OwnTask : public Task
{
public:
    explicit OwnTask(const char* name = nullptr, const char* label = nullptr) : Task(name, label) {}

    using Task::cloneError;
};

std::string idText(const Task& task)
{
    return std::to_string(task.taskId());
}

TEST(Runnable, HasOneVirtualFunctionAfterItsDestructor)
{
    EXPECT_EQ(2, virtualSlot(&Runnable::run));
}

TEST(Task, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("Task", Task::CLASS_NAME);
    EXPECT_EQ(virtualSlot(&Runnable::run), virtualSlot(&Task::run));
    EXPECT_EQ(-1, virtualSlot(&Task::interrupt));
    EXPECT_EQ(-1, virtualSlot(&Task::waitForCompletion));
}

TEST(Task, StateIsReadyInitially)
{
    Work work;
    const Task task(work);
    EXPECT_EQ(Task::TSF_READY, task.status());
    EXPECT_FALSE(task.running());
    EXPECT_EQ(0, work.runs);
}

TEST(Task, GivenNameIsUsedUnchanged)
{
    Work work;
    EXPECT_EQ("Backup", Task(work, "Backup", "Job").name());
    EXPECT_EQ("", Task(work, "", "Job").name());
    EXPECT_EQ("Backup", Task(&work, false, "Backup").name());
    EXPECT_EQ("Backup", OwnTask("Backup", "Job").name());
}

TEST(Task, DefaultNameIsTheLabelAndTheId)
{
    Work work;
    const Task plain(work);
    EXPECT_EQ("Task" + idText(plain), plain.name());
    const Task labelled(&work, false, nullptr, "Job");
    EXPECT_EQ("Job" + idText(labelled), labelled.name());
    const Task byReference(work, nullptr, "Job");
    EXPECT_EQ("Job" + idText(byReference), byReference.name());
    const OwnTask own(nullptr, nullptr);
    EXPECT_EQ("Task" + idText(own), own.name());
    const OwnTask unlabelled(nullptr, "");
    EXPECT_EQ(idText(unlabelled), unlabelled.name());
}

TEST(Task, NameAndLabelMayHaveAnyLength)
{
    Work work;
    for (std::size_t length = 0; length < 100; ++length) {
        const std::string text(length, 'n');
        EXPECT_EQ(text, Task(work, text.c_str()).name());
        const Task labelled(work, nullptr, text.c_str());
        EXPECT_EQ(text + std::to_string(labelled.taskId()), labelled.name());
    }
}

TEST(Task, OverAlignedTaskIsAligned)
{
    constexpr std::size_t ALIGNMENT = 128;
    class alignas(ALIGNMENT) Aligned : public Task
    {
    public:
        Aligned() : Task("aligned") {}
    };
    const auto isAligned = [](const Task* task) {
        return reinterpret_cast<std::uintptr_t>(task) % ALIGNMENT == 0;
    };
    std::vector<std::unique_ptr<Task>> tasks;
    for (int i = 0; i < 10; ++i) {
        tasks.push_back(std::make_unique<Aligned>());
        EXPECT_TRUE(isAligned(tasks.back().get()));
        tasks.emplace_back(new (std::nothrow) Aligned);
        EXPECT_TRUE(isAligned(tasks.back().get()));
    }
}

TEST(Task, IsConstructedAtAGivenAddress)
{
    Work work;
    alignas(Task) unsigned char place[sizeof(Task)];
    Task* const task = new (place) Task(work, "here");
    EXPECT_EQ(static_cast<void*>(place), task);
    EXPECT_EQ("here", task->name());
    task->~Task();
}

TEST(Task, IdIsUnique)
{
    Work work;
    const Task first(work);
    const Task second(&work);
    const OwnTask third;
    EXPECT_NE(first.taskId(), second.taskId());
    EXPECT_NE(second.taskId(), third.taskId());
    EXPECT_NE(first.taskId(), third.taskId());
}

TEST(Task, NullTargetThrows)
{
    for (const bool destroy : {false, true}) {
        try {
            const Task task(static_cast<Runnable*>(nullptr), destroy);
            FAIL() << "nothing was thrown";
        } catch (const std::logic_error& error) {
            EXPECT_STREQ("Runnable target was NULL", error.what());
        }
    }
}

TEST(Task, DeletesItsTargetIfItOwnsIt)
{
    int destroyed = 0;
    {
        const Task task(new Work(nullptr, &destroyed), true);
    }
    EXPECT_EQ(1, destroyed);
    Work work(nullptr, &destroyed);
    {
        const Task byPointer(&work, false);
        const Task byDefault(&work);
        const Task byReference(work);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(Task, RunsItsTarget)
{
    const Task* seen = nullptr;
    Task::TaskState state = Task::TSF_READY;
    Work work([&] {
        seen = Task::currentTask();
        state = seen->status();
        EXPECT_TRUE(seen->running());
    });
    Task task(work);
    EXPECT_EQ(nullptr, Task::currentTask());
    task.run();
    EXPECT_EQ(&task, seen);
    EXPECT_EQ(Task::TSF_RUNNING, state);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
    EXPECT_FALSE(task.running());
    EXPECT_EQ(nullptr, Task::currentTask());
    EXPECT_EQ(1, work.runs);
    // run() does not check the state.
    task.run();
    EXPECT_EQ(2, work.runs);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST(Task, RunDoesNothingIfTheTaskIsItsOwnTarget)
{
    OwnTask task;
    task.run();
    EXPECT_EQ(Task::TSF_READY, task.status());
    EXPECT_EQ(nullptr, Task::currentTask());
}

TEST(Task, ExceptionLeavesTheTaskRunning)
{
    std::thread([] {
        Work work([] { throw std::runtime_error("no more"); });
        Task task(work);
        EXPECT_THROW(task.run(), std::runtime_error);
        EXPECT_EQ(Task::TSF_RUNNING, task.status());
        EXPECT_TRUE(task.running());
        EXPECT_EQ(&task, Task::currentTask());
    }).join();
}

TEST(Task, CurrentTaskIsNullAfterANestedRun)
{
    Work innerWork;
    Task inner(innerWork);
    const Task* current = &inner;
    Work outerWork([&] {
        inner.run();
        current = Task::currentTask();
    });
    Task outer(outerWork);
    outer.run();
    EXPECT_EQ(nullptr, current);
    EXPECT_EQ(Task::TSF_FINISHED, inner.status());
    EXPECT_EQ(Task::TSF_FINISHED, outer.status());
}

class TaskTest : public testing::Test
{
protected:
    ~TaskTest() noexcept override = default;

    Work work;
    Task task{work};
};

TEST_F(TaskTest, InterruptSetsBits)
{
    EXPECT_EQ(0UL, task.interrupted());
    EXPECT_EQ(1UL, task.interrupt(0));
    EXPECT_EQ(5UL, task.interrupt(4));
    EXPECT_EQ(5UL, task.interrupt(0));
    EXPECT_EQ(5UL, task.interrupted());
    EXPECT_EQ(0UL, task.interrupted());
    EXPECT_EQ(Task::TSF_READY, task.status());
}

TEST_F(TaskTest, KeepsBit31)
{
    EXPECT_EQ(0x80000001UL, task.interrupt(0x80000001UL));
    EXPECT_EQ(0x80000001UL, task.interrupted());
    EXPECT_EQ(0x80000000UL, task.interrupted());
    EXPECT_EQ(0x80000000UL, task.interrupted());
    EXPECT_EQ(0x80000002UL, task.interrupt(2));
}

TEST_F(TaskTest, InterruptedClearsTheBitsAbove31)
{
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFUL, task.interrupt(0xFFFFFFFFFFFFFFFFUL));
    EXPECT_EQ(0xFFFFFFFFFFFFFFFFUL, task.interrupted());
    EXPECT_EQ(0x80000000UL, task.interrupted());
}

TEST_F(TaskTest, WaitForStateChangeReturnsImmediatelyWithZero)
{
    task.waitForStateChange(0);
    task.run();
    task.waitForStateChange(0);
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST_F(TaskTest, WaitForStateChangeReturnsImmediatelyIfABitIsSet)
{
    task.interrupt(0x80000000UL);
    for (const unsigned int ms : {0U, 1U, LONG, 0xFFFFFFFFU}) {
        task.waitForStateChange(ms);
        task.interrupted();
    }
    Work otherWork;
    Task other(otherWork);
    other.interrupt(2);
    other.waitForStateChange(0xFFFFFFFF);
    EXPECT_EQ(2UL, other.interrupted()) << "the wait clears no bit";
}

TEST_F(TaskTest, WaitForStateChangeReturnsAtTheTimeOut)
{
    const Clock::time_point start = Clock::now();
    task.waitForStateChange(1100);
    EXPECT_GE(Clock::now() - start, Ms(1095));
}

TEST_F(TaskTest, WaitForStateChangeReturnsAfterAStateChange)
{
    Caller limited([this] { task.waitForStateChange(LONG); });
    Caller unlimited([this] { task.waitForStateChange(0xFFFFFFFF); });
    EXPECT_TRUE(limited.awaitAsleep());
    EXPECT_TRUE(unlimited.awaitAsleep());
    task.run();
    limited.join();
    unlimited.join();
    EXPECT_EQ(Task::TSF_FINISHED, task.status());
}

TEST_F(TaskTest, InterruptWakesAllWaiters)
{
    Caller first([this] { task.waitForStateChange(LONG); });
    Caller second([this] { task.waitForStateChange(0xFFFFFFFF); });
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    EXPECT_EQ(1UL, task.interrupt(0));
    first.join();
    second.join();
}

TEST_F(TaskTest, InterruptedWakesNoWaiter)
{
    Caller waiter([this] { task.waitForStateChange(LONG); });
    EXPECT_TRUE(waiter.awaitAsleep());
    task.interrupted();
    EXPECT_TRUE(waiter.awaitAsleep());
    task.interrupt(0);
}

TEST_F(TaskTest, WaitForCompletionWithZeroReturnsWhetherTheTaskHasFinished)
{
    EXPECT_FALSE(task.waitForCompletion(0));
    task.run();
    EXPECT_TRUE(task.waitForCompletion(0));
    EXPECT_TRUE(task.waitForCompletion(0));
}

TEST_F(TaskTest, WaitForCompletionReturnsFalseIfTheTaskHadFinishedBefore)
{
    task.run();
    EXPECT_FALSE(task.waitForCompletion(1000));
    EXPECT_FALSE(task.waitForCompletion(1));
    EXPECT_FALSE(task.waitForCompletion(0xFFFFFFFF)) << "it returns immediately";
}

TEST_F(TaskTest, WaitForCompletionReturnsTrueIfTheTaskFinishedDuringTheWait)
{
    std::atomic<bool> limited{false};
    std::atomic<bool> unlimited{false};
    Caller first([&] { limited = task.waitForCompletion(LONG); });
    Caller second([&] { unlimited = task.waitForCompletion(0xFFFFFFFF); });
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    // Wakes the waiters, which check the state and wait again.
    task.interrupt(1);
    EXPECT_TRUE(first.awaitAsleep());
    EXPECT_TRUE(second.awaitAsleep());
    task.run();
    first.join();
    second.join();
    EXPECT_TRUE(limited);
    EXPECT_TRUE(unlimited);
}

TEST_F(TaskTest, WaitForCompletionTakesThePartBelowASecondAsMicroseconds)
{
    Clock::time_point start = Clock::now();
    EXPECT_FALSE(task.waitForCompletion(1500));
    const Clock::duration second = Clock::now() - start;
    EXPECT_GE(second, Ms(1000));
    // A thousand waits, which would last 999 milliseconds each if the unit were milliseconds.
    start = Clock::now();
    for (int i = 0; i < 1000; ++i) {
        EXPECT_FALSE(task.waitForCompletion(999));
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(300));
}

TEST_F(TaskTest, CurrentIsNullOnAForeignThread)
{
    const Task* current = &task;
    std::thread([&] { current = Task::currentTask(); }).join();
    EXPECT_EQ(nullptr, current);
}

/** The owner may destroy a task as soon as its state is TSF_FINISHED. */
TEST(TaskEnd, OwnerMayDestroyAFinishedTaskImmediately)
{
    for (int round = 0; round < 1000; ++round) {
        Work work;
        auto task = std::make_unique<Task>(work);
        std::thread runner([&] { task->run(); });
        while (task->status() != Task::TSF_FINISHED) {
            std::this_thread::yield();
        }
        task.reset();
        runner.join();
    }
}

/** Returns a clone of `error`, and checks that its type is exactly T. */
template <class T>
std::unique_ptr<std::exception> cloneOf(const std::exception& error)
{
    std::unique_ptr<std::exception> copy(OwnTask::cloneError(error));
    EXPECT_NE(&error, copy.get());
    const std::exception& ref = *copy;
    EXPECT_STREQ(typeid(T).name(), typeid(ref).name());
    return copy;
}

TEST(CloneError, ClonesCloneableExceptions)
{
    const system_error error(5, "disk gone");
    const auto copy = cloneOf<system_error>(error);
    EXPECT_STREQ("disk gone", copy->what());
    const auto& typed = dynamic_cast<const system_error&>(*copy);
    EXPECT_EQ(5, typed.error());
    EXPECT_EQ(error.trace(), typed.trace());
}

TEST(CloneError, CopiesStandardExceptionsWithTheirType)
{
    EXPECT_STREQ(std::ios_base::failure("io").what(),
                 cloneOf<std::ios_base::failure>(std::ios_base::failure("io"))->what());
    cloneOf<std::bad_alloc>(std::bad_alloc());
    cloneOf<std::bad_cast>(std::bad_cast());
    cloneOf<std::bad_typeid>(std::bad_typeid());
    EXPECT_STREQ("run", cloneOf<std::runtime_error>(std::runtime_error("run"))->what());
    EXPECT_STREQ("logic", cloneOf<std::logic_error>(std::logic_error("logic"))->what());
    EXPECT_STREQ("std::exception", cloneOf<std::exception>(std::exception())->what());
}

class OddException : public std::exception
{
public:
    const char* what() const noexcept override
    {
        return "odd";
    }
};

TEST(CloneError, SlicesDerivedExceptions)
{
    EXPECT_STREQ("far", cloneOf<std::runtime_error>(std::range_error("far"))->what());
    EXPECT_STREQ("off", cloneOf<std::logic_error>(std::out_of_range("off"))->what());
    cloneOf<std::bad_alloc>(std::bad_array_new_length());
    EXPECT_STREQ("std::exception", cloneOf<std::exception>(OddException())->what());
}

/** An exception that matches more than one of the types that cloneError() tests. */
class TwoTypes : public std::bad_cast, public std::runtime_error
{
public:
    TwoTypes() : std::runtime_error("two") {}
};

class Clone : public std::logic_error, public nim::type::Cloneable
{
public:
    Clone() : std::logic_error("clone") {}
    ~Clone() noexcept override = default;
    nim::type::Cloneable* clone(bool deep) const override
    {
        EXPECT_FALSE(deep);
        return new Clone(*this);
    }
};

class NoException : public nim::type::Cloneable
{
public:
    explicit NoException(int& destroyed) : destroyed_(destroyed) {}
    ~NoException() override
    {
        ++destroyed_;
    }
    nim::type::Cloneable* clone(bool) const override
    {
        return new NoException(destroyed_);
    }

private:
    int& destroyed_;
};

class Changeling : public std::runtime_error, public nim::type::Cloneable
{
public:
    explicit Changeling(int& destroyed) : std::runtime_error("changeling"), destroyed_(destroyed) {}
    ~Changeling() noexcept override = default;
    nim::type::Cloneable* clone(bool) const override
    {
        return new NoException(destroyed_);
    }

private:
    int& destroyed_;
};

TEST(CloneError, TriesTheTypesInTheDocumentedOrder)
{
    cloneOf<std::bad_cast>(static_cast<const std::bad_cast&>(TwoTypes()));
    cloneOf<Clone>(Clone());
}

TEST(CloneError, CloneThatIsNoExceptionThrowsBadCast)
{
    int destroyed = 0;
    EXPECT_THROW(OwnTask::cloneError(Changeling(destroyed)), std::bad_cast);
    EXPECT_EQ(1, destroyed) << "the clone is destroyed";
}

}
