#include <dalnim/mt/ThreadPool.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <qv/Threads.hpp>

#include "Work.hpp"

// The queued tasks of one submitter share one snapshot of its context: an entry has one reference of all
// queued tasks together, and one of each running task.

namespace {

namespace nim = com::kor::dal::nim;
using mttest::awaitEnd;
using mttest::OwnTask;
using nim::mem::RefCntObjectRef;
using nim::mt::Task;
using nim::mt::ThreadPool;
using nim::type::ContainerContext;
using nim::type::ContainerContextRef;
using nim::type::Context;
using qvtest::Caller;
using qvtest::Gate;

/** An entry that counts its living objects. */
class Item : public nim::mem::RefCntObject
{
public:
    explicit Item(std::atomic<int>& count) : living(count)
    {
        ++living;
    }
    ~Item() override
    {
        --living;
    }

private:
    std::atomic<int>& living;
};

/** An Item that can be cloned. */
class Cell : public nim::mem::RefCntObject, public nim::type::Cloneable
{
public:
    explicit Cell(std::atomic<int>& count) : living(count)
    {
        ++living;
    }
    Cell(const Cell& other)
        : nim::type::Object(other), RefCntObject(other), Cloneable(other), living(other.living)
    {
        ++living;
    }
    Cell& operator=(const Cell&) = delete;
    ~Cell() noexcept override
    {
        --living;
    }
    Cloneable* clone(bool) const override
    {
        return new Cell(*this);
    }

private:
    std::atomic<int>& living;
};

const nim::mem::RefCntObject* entry(unsigned int key)
{
    return ContainerContext::current()->find(key).get();
}

class ThreadPoolSharing : public testing::Test
{
protected:
    ~ThreadPoolSharing() noexcept override
    {
        context->clearContent();
    }

    void insert(unsigned int key)
    {
        EXPECT_TRUE(context->add(RefCntObjectRef(new Item(living)), key));
    }

    /** Occupies the only worker until the gate is open. */
    void occupy()
    {
        Gate entered;
        holder = std::make_unique<OwnTask>([&] {
            entered.open();
            gate.pass();
        });
        const nim::mem::RcoRef<nim::sys::internal::CurrentContext> none(
            new nim::sys::internal::CurrentContext);
        EXPECT_TRUE(pool.add(*holder, true, none.get()));
        entered.pass();
    }

    std::atomic<int> living{0};
    const unsigned int shared = Context::allocateKey(1);
    const unsigned int other = Context::allocateKey(1);
    const unsigned int left = Context::allocateKey(0);
    const unsigned int cloned = Context::allocateKey(2);
    ContainerContextRef context = ContainerContext::current();
    Gate gate;
    std::unique_ptr<OwnTask> holder;
    ThreadPool pool{nullptr, 1, 0, 0, 0, 0, 1000};
};

TEST_F(ThreadPoolSharing, SnapshotKeepsEntriesThatTheSourceRemoves)
{
    insert(shared);
    insert(left);
    occupy();
    const nim::mem::RefCntObject* const object = entry(shared);
    const nim::mem::RefCntObject* seen[2] = {nullptr, nullptr};
    bool isLeft = true;
    OwnTask first([&] {
        seen[0] = entry(shared);
        isLeft = entry(left) == nullptr;
    });
    OwnTask second([&] { seen[1] = entry(shared); });
    EXPECT_TRUE(pool.add(first));
    EXPECT_TRUE(pool.add(second));
    context->clearContent();
    EXPECT_EQ(1, living) << "the entry that is not copied has been destroyed, the shared one has not";
    OwnTask third([&] { EXPECT_EQ(nullptr, entry(shared)); });
    EXPECT_TRUE(pool.add(third));
    gate.open();
    pool.shutdown(true);
    EXPECT_EQ(object, seen[0]);
    EXPECT_EQ(object, seen[1]);
    EXPECT_TRUE(isLeft);
    EXPECT_EQ(0, living) << "destroyed with its last reference";
}

TEST_F(ThreadPoolSharing, IsCopiedByEachAdd)
{
    insert(shared);
    occupy();
    bool had[3] = {false, false, false};
    OwnTask first([&] { had[0] = entry(shared) != nullptr && entry(other) == nullptr; });
    EXPECT_TRUE(pool.add(first));
    insert(other);
    OwnTask second([&] { had[1] = entry(shared) != nullptr && entry(other) != nullptr; });
    EXPECT_TRUE(pool.add(second));
    context->remove(shared);
    OwnTask third([&] { had[2] = entry(shared) == nullptr && entry(other) != nullptr; });
    EXPECT_TRUE(pool.add(third));
    EXPECT_EQ(2, living);
    gate.open();
    awaitEnd(third);
    EXPECT_TRUE(had[0]);
    EXPECT_TRUE(had[1]);
    EXPECT_TRUE(had[2]);
    pool.shutdown(true);
    EXPECT_EQ(1, living);
}

TEST_F(ThreadPoolSharing, EachTaskThatReadsItsContextHasAReference)
{
    insert(shared);
    const RefCntObjectRef object = context->find(shared);
    std::uint32_t seen = 0;
    OwnTask task([&] {
        ContainerContextRef mine = ContainerContext::current();
        seen = object->refCount();
        mine->remove(shared);
        EXPECT_EQ(seen - 1, object->refCount());
    });
    const std::uint32_t before = object->refCount();
    EXPECT_TRUE(pool.add(task));
    pool.shutdown(true);
    EXPECT_EQ(before + 1, seen);
    EXPECT_EQ(before, object->refCount());
}

TEST_F(ThreadPoolSharing, QueuedTasksHoldOneReferenceToEachEntry)
{
    insert(shared);
    insert(other);
    const RefCntObjectRef object = context->find(shared);
    occupy();
    OwnTask tasks[3];
    for (OwnTask& task : tasks) {
        EXPECT_TRUE(pool.add(task));
        EXPECT_EQ(3U, object->refCount()) << "this test, the context, the tasks";
        EXPECT_EQ(2U, entry(other)->refCount());
    }
    gate.open();
    pool.shutdown(true);
    EXPECT_EQ(2U, object->refCount());
    EXPECT_EQ(1U, entry(other)->refCount());
}

TEST_F(ThreadPoolSharing, SubmitterIsTheOnlyOwnerAfterTheLastTask)
{
    insert(shared);
    const nim::mem::RefCntObject* const object = entry(shared);
    for (int round = 0; round < 3; ++round) {
        OwnTask task([&] { EXPECT_EQ(2U, object->refCount()); });
        EXPECT_TRUE(pool.add(task));
        while (object->refCount() != 1) {
            std::this_thread::yield();
        }
        EXPECT_EQ(object, entry(shared));
    }
}

TEST_F(ThreadPoolSharing, RunningTaskHasItsOwnReferenceBeforeItReadsItsContext)
{
    insert(shared);
    const nim::mem::RefCntObject* const object = entry(shared);
    ThreadPool pair(nullptr, 2, 0, 0, 0, 0, 10);
    Gate entered[2];
    const auto enter = [&](Gate& mine) {
        mine.open();
        gate.pass();
    };
    OwnTask first([&] { enter(entered[0]); });
    OwnTask second([&] { enter(entered[1]); });
    OwnTask queued;
    EXPECT_TRUE(pair.add(first));
    EXPECT_TRUE(pair.add(second));
    entered[0].pass();
    entered[1].pass();
    EXPECT_EQ(3U, object->refCount()) << "the context, the two running tasks";
    EXPECT_TRUE(pair.add(queued));
    EXPECT_EQ(4U, object->refCount()) << "the context, the two running tasks, the queued one";
    context->clearContent();
    EXPECT_EQ(3U, object->refCount());
    gate.open();
    pair.shutdown(true);
    EXPECT_EQ(0, living);
}

TEST_F(ThreadPoolSharing, LastTaskIsTheOnlyOwnerOfAnEntryThatTheSourceRemoved)
{
    insert(shared);
    const nim::mem::RefCntObject* const object = entry(shared);
    occupy();
    std::uint32_t counts[4] = {0, 0, 0, 0};
    const auto look = [&](std::uint32_t* count) {
        count[0] = object->refCount();
        count[1] = entry(shared)->refCount();
    };
    OwnTask first([&] { look(counts); });
    OwnTask second([&] { look(counts + 2); });
    EXPECT_TRUE(pool.add(first));
    EXPECT_TRUE(pool.add(second));
    context->clearContent();
    gate.open();
    pool.shutdown(true);
    EXPECT_EQ(2U, counts[0]) << "its own reference and that of the queued task";
    EXPECT_EQ(2U, counts[1]);
    EXPECT_EQ(1U, counts[2]);
    EXPECT_EQ(1U, counts[3]);
    EXPECT_EQ(0, living);
}

/** An entry that its sole owner changes in place. */
class Version : public nim::mem::RefCntObject
{
public:
    explicit Version(int n) : number(n) {}

    int number;
};

// Only the reference counts synchronise the numbers: the thread sanitizer checks that, too.
TEST_F(ThreadPoolSharing, CopyOnWriteByRefCountKeepsTheVersionOfQueuedTasks)
{
    ThreadPool pair(nullptr, 2, 0, 0, 0, 0, 1000);
    nim::mem::RcoRef<Version> version(new Version(0));
    context->add(RefCntObjectRef(version), shared);
    std::atomic<int> correct{0};
    for (int number = 1; number <= 2000; ++number) {
        // If this test and the context are the only owners, no task has a reference.
        if (version->refCount() == 2) {
            version->number = number;
        } else {
            context->remove(shared);
            version = new Version(number);
            context->add(RefCntObjectRef(version), shared);
        }
        const auto check = [&correct, this, number] {
            const ContainerContextRef mine = ContainerContext::current();
            const auto& seen = dynamic_cast<const Version&>(*mine->find(shared));
            const bool wasCorrect = seen.number == number;
            std::this_thread::yield();
            correct += wasCorrect && seen.number == number ? 1 : 0;
        };
        EXPECT_TRUE(pair.add(new OwnTask(check), true));
        EXPECT_TRUE(pair.add(new OwnTask(check), true));
        if (number % 100 == 0) {
            while (version->refCount() != 2) {
                std::this_thread::yield();
            }
        }
    }
    pair.shutdown(true);
    EXPECT_EQ(4000, correct);
}

// The submitter releases its reference: only the last task is the sole owner and changes the object.
TEST_F(ThreadPoolSharing, CopyOnWriteByRefCountIsSafeAmongTasks)
{
    ThreadPool pair(nullptr, 2, 0, 0, 0, 0, 1000);
    std::atomic<int> correct{0};
    const auto use = [&correct, this] {
        const ContainerContextRef mine = ContainerContext::current();
        auto& object = const_cast<Version&>(dynamic_cast<const Version&>(*mine->find(shared)));
        correct += object.number == 0 ? 1 : 0;
        if (object.refCount() == 1) {
            ++object.number;
        }
    };
    for (int round = 0; round < 1000; ++round) {
        context->add(RefCntObjectRef(new Version(0)), shared);
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(pair.add(new OwnTask(use), true));
        }
        context->remove(shared);
    }
    pair.shutdown(true);
    EXPECT_EQ(3000, correct);
}

TEST_F(ThreadPoolSharing, EachTaskHasItsOwnClones)
{
    EXPECT_TRUE(context->add(RefCntObjectRef(new Cell(living)), cloned));
    occupy();
    std::vector<RefCntObjectRef> seen;
    const auto look = [&] { seen.push_back(ContainerContext::current()->find(cloned)); };
    OwnTask first(look);
    OwnTask inner(look);
    OwnTask second([&] {
        look();
        EXPECT_TRUE(pool.add(inner));
    });
    EXPECT_TRUE(pool.add(first));
    EXPECT_TRUE(pool.add(second));
    EXPECT_EQ(3, living) << "the original and one clone for each add";
    gate.open();
    awaitEnd(inner);
    pool.shutdown(true);
    ASSERT_EQ(3U, seen.size());
    EXPECT_TRUE(seen[0] && seen[1] && seen[2]);
    EXPECT_NE(seen[0], seen[1]);
    EXPECT_NE(seen[1], seen[2]);
    for (RefCntObjectRef& clone : seen) {
        EXPECT_EQ(1U, clone->refCount());
        clone.clear();
    }
    EXPECT_EQ(1, living);
}

TEST_F(ThreadPoolSharing, CanBePassedOnByATaskThatHasNotReadIt)
{
    insert(shared);
    const nim::mem::RefCntObject* const object = entry(shared);
    const nim::mem::RefCntObject* seen = nullptr;
    OwnTask inner([&] { seen = entry(shared); });
    OwnTask outer([&] { EXPECT_TRUE(pool.add(inner)); });
    EXPECT_TRUE(pool.add(outer));
    awaitEnd(inner);
    EXPECT_EQ(object, seen);
}

TEST_F(ThreadPoolSharing, TaskDoesNotPassOnTheSnapshotOfTheTaskBeforeIt)
{
    // The first task submits a task from a context without entries, and does not change that context. The
    // submitted task is still queued when the next one submits.
    insert(left);
    occupy();
    ThreadPool submitters(nullptr, 1, 0, 0, 0, 0, 1000);
    OwnTask empty([&] { EXPECT_EQ(nullptr, entry(shared)); });
    OwnTask first([&] {
        EXPECT_TRUE(pool.add(empty));
        EXPECT_EQ(nullptr, entry(shared));
    });
    EXPECT_TRUE(submitters.add(first));
    awaitEnd(first);
    insert(shared);
    const nim::mem::RefCntObject* const object = entry(shared);
    const nim::mem::RefCntObject* seen = nullptr;
    OwnTask inner([&] { seen = entry(shared); });
    OwnTask second([&] { EXPECT_TRUE(pool.add(inner)); });
    EXPECT_TRUE(submitters.add(second));
    awaitEnd(second);
    submitters.shutdown(true);
    gate.open();
    awaitEnd(inner);
    EXPECT_EQ(object, seen);
}

TEST_F(ThreadPoolSharing, SnapshotIsReleasedWithDiscardedTasks)
{
    insert(shared);
    occupy();
    OwnTask discarded[3];
    for (OwnTask& task : discarded) {
        EXPECT_TRUE(pool.add(task));
    }
    context->clearContent();
    EXPECT_EQ(1, living);
    Caller closer([this] { pool.shutdown(false); });
    while (living != 0) {
        std::this_thread::yield();
    }
    gate.open();
    closer.join();
    EXPECT_EQ(Task::TSF_QUEUED, discarded[2].status());
}

TEST_F(ThreadPoolSharing, ManyThreadsMayCopyOneContext)
{
    nim::mem::RcoRef<nim::sys::internal::CurrentContext> common(new nim::sys::internal::CurrentContext);
    for (int round = 0; round < 50; ++round) {
        EXPECT_TRUE(common->add(RefCntObjectRef(new Item(living)), shared));
        std::atomic<int> found{0};
        {
            std::vector<std::unique_ptr<Caller>> submitters;
            for (int i = 0; i < 3; ++i) {
                submitters.push_back(std::make_unique<Caller>([&] {
                    for (int k = 0; k < 20; ++k) {
                        pool.add(new OwnTask([&] { found += entry(shared) != nullptr ? 1 : 0; }), true, true,
                                 common.get());
                    }
                }));
            }
        }
        // Some tasks are still queued, others are reading the context.
        common->clearContent();
        while (living != 0) {
            std::this_thread::yield();
        }
        EXPECT_EQ(60, found);
    }
}

TEST_F(ThreadPoolSharing, CanBePassedOnWhileTheSourceChanges)
{
    std::atomic<int> found{0};
    for (int round = 0; round < 2000; ++round) {
        insert(shared);
        pool.add(new OwnTask([&] { found += entry(shared) != nullptr ? 1 : 0; }), true);
        pool.add(new OwnTask, true);
        context->remove(shared);
    }
    pool.shutdown(true);
    EXPECT_EQ(2000, found);
    EXPECT_EQ(0, living);
}

/** Hangs if a wake-up is lost between the submitting threads, the workers and the destructor. */
TEST(ThreadPoolRace, ManyShortLivedPoolsEnd)
{
    std::atomic<int> runs{0};
    for (int round = 0; round < 300; ++round) {
        ThreadPool pool(nullptr, 2, 0, 0, 0, 0, 2);
        {
            const auto submit = [&] {
                for (int i = 0; i < 4; ++i) {
                    pool.add(new OwnTask([&] { ++runs; }), true);
                }
            };
            Caller first(submit);
            Caller second(submit);
        }
        pool.shutdown(true);
        EXPECT_EQ(8 * (round + 1), runs);
    }
}

}
