#include <dalnim/mt/Queue.hpp>

#include <dalnim/mem/RefCntObjectRef.hpp>
#include <dalnim/sys/StackTrace.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include <qv/Threads.hpp>
#include <support/VirtualSlot.hpp>

namespace {

namespace nim = com::kor::dal::nim;
using nim::mem::RcoRef;
using nim::mem::RefCntObject;
using nim::mt::Queue;
using nim::mt::QueueElement;
using qvtest::Caller;
typedef std::chrono::steady_clock Clock;

constexpr unsigned int NO_LIMIT = 0xFFFFFFFF;

static_assert(std::is_base_of_v<nim::type::Object, Queue>);
static_assert(!std::is_copy_constructible_v<Queue>);
static_assert(!std::is_copy_assignable_v<Queue>);
static_assert(std::is_base_of_v<nim::type::Object, QueueElement>);
static_assert(!std::is_default_constructible_v<QueueElement>);
static_assert(!std::is_copy_constructible_v<QueueElement>);
static_assert(!std::is_copy_assignable_v<QueueElement>);
static_assert(std::has_virtual_destructor_v<QueueElement>);

class Item : public QueueElement
{
public:
    explicit Item(int itemNumber = 0, std::atomic<int>* destroyedItems = nullptr)
        : number(itemNumber), destroyed(destroyedItems)
    {
    }
    Item(const Item&) = default;
    Item& operator=(const Item&) = default;
    ~Item() override
    {
        if (destroyed != nullptr) {
            ++*destroyed;
        }
    }

    int number;
    std::atomic<int>* destroyed;
};

class CountedItem : public QueueElement, public RefCntObject
{
public:
    explicit CountedItem(std::atomic<int>& destroyedItems) : destroyed(destroyedItems) {}
    ~CountedItem() override
    {
        ++destroyed;
    }

    std::atomic<int>& destroyed;
};

/** Removes an item. Returns its number, or -1 if there is none. The item remains its owner's. */
int take(Queue& queue, unsigned int ms = 0)
{
    const auto* const item = dynamic_cast<Item*>(queue.next(ms));
    return item != nullptr ? item->number : -1;
}

/** A producer that waits for capacity, or a consumer that waits for an element. */
class Waiter
{
public:
    template <class Call>
    explicit Waiter(Call call) : caller([this, call] { result = call(); })
    {
        EXPECT_TRUE(caller.awaitAsleep());
    }

    int outcome()
    {
        caller.join();
        return result;
    }
    bool isStillWaiting()
    {
        return caller.awaitAsleep();
    }

private:
    std::atomic<int> result{-2};
    Caller caller;
};

class QueueTest : public testing::Test
{
protected:
    ~QueueTest() noexcept override
    {
        // The test owns the items, so the queue must not contain any.
        while (queue.next(0) != nullptr) {
        }
    }

    Item items[4] = {Item(0), Item(1), Item(2), Item(3)};
    Queue queue{3};
};

TEST_F(QueueTest, ClassNameIsItsUnqualifiedName)
{
    EXPECT_STREQ("Queue", Queue::CLASS_NAME);
    EXPECT_EQ(-1, virtualSlot(&Queue::insert));
    EXPECT_EQ(-1, virtualSlot(&Queue::next));
    EXPECT_EQ(-1, virtualSlot(&Queue::complete));
    EXPECT_EQ(-1, virtualSlot(&Queue::shutdown));
}

TEST_F(QueueTest, NextReturnsTheElementsInOrder)
{
    EXPECT_TRUE(queue.insert(&items[0], 0));
    EXPECT_TRUE(queue.insert(&items[1], 7));
    EXPECT_TRUE(queue.insert(&items[2]));
    EXPECT_EQ(0, take(queue));
    EXPECT_TRUE(queue.insert(&items[3], NO_LIMIT));
    EXPECT_EQ(1, take(queue, 7));
    EXPECT_EQ(2, take(queue, NO_LIMIT));
    EXPECT_EQ(&items[3], queue.next());
    EXPECT_EQ(nullptr, queue.next(0));
}

TEST_F(QueueTest, ElementCanBeInsertedAgain)
{
    Queue other(2);
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(queue.insert(&items[0], 0));
        EXPECT_TRUE(queue.insert(&items[1], 0));
        EXPECT_EQ(0, take(queue));
        // A stale link would insert the second item, too.
        EXPECT_TRUE(other.insert(&items[0], 0));
        EXPECT_EQ(0, take(other));
        EXPECT_EQ(-1, take(other));
        EXPECT_EQ(1, take(queue));
        EXPECT_EQ(-1, take(queue));
    }
}

TEST_F(QueueTest, CopiesHaveNoLink)
{
    EXPECT_TRUE(queue.insert(&items[0], 0));
    EXPECT_TRUE(queue.insert(&items[1], 0));
    Item copy(items[0]);
    // Assignment to an element does not change its position in the queue.
    items[0] = items[3];
    Queue other(2);
    EXPECT_TRUE(other.insert(&copy, 0));
    EXPECT_EQ(0, take(other));
    EXPECT_EQ(-1, take(other));
    EXPECT_EQ(3, take(queue));
    EXPECT_EQ(1, take(queue));
}

TEST_F(QueueTest, FullInsertAndEmptyNextReturnImmediatelyWithZero)
{
    EXPECT_EQ(nullptr, queue.next(0));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(queue.insert(&items[i], 0));
    }
    EXPECT_FALSE(queue.insert(&items[3], 0));
    EXPECT_EQ(0, take(queue));
    EXPECT_TRUE(queue.insert(&items[3], 0)) << "a rejected element remains the caller's";
}

TEST_F(QueueTest, WaitsReturnAtTheTimeOut)
{
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(nullptr, queue.next(50));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(45));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(queue.insert(&items[i], 50));
    }
    const Clock::time_point full = Clock::now();
    EXPECT_FALSE(queue.insert(&items[3], 50));
    EXPECT_GE(Clock::now() - full, std::chrono::milliseconds(45));
}

TEST_F(QueueTest, WaitsFiveMilliseconds)
{
    // At least one of several attempts is not delayed by other processes.
    Clock::duration shortest = std::chrono::hours(1);
    for (int i = 0; i < 20; ++i) {
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(nullptr, queue.next(5));
        shortest = std::min(shortest, Clock::now() - start);
    }
    EXPECT_GE(shortest, std::chrono::milliseconds(4));
    EXPECT_LT(shortest, std::chrono::milliseconds(50));
}

TEST_F(QueueTest, CapacityOfZeroAcceptsNothing)
{
    Queue none(0);
    EXPECT_TRUE(none.ready());
    EXPECT_FALSE(none.insert(&items[0], 0));
    EXPECT_FALSE(none.insert(&items[0], 1));
    EXPECT_EQ(nullptr, none.next(0));
    Waiter producer([&] { return none.insert(&items[0], NO_LIMIT); });
    none.complete();
    EXPECT_TRUE(producer.isStillWaiting());
    none.shutdown();
    EXPECT_EQ(0, producer.outcome());
}

TEST_F(QueueTest, FirstElementWakesAConsumer)
{
    for (const unsigned int limit : {60000U, 0xFFFFFFFEU, NO_LIMIT}) {
        SCOPED_TRACE(limit);
        Waiter consumer([&] { return take(queue, limit); });
        EXPECT_TRUE(queue.insert(&items[2], 0));
        EXPECT_EQ(2, consumer.outcome());
    }
}

TEST_F(QueueTest, FirstFreeSlotWakesAProducer)
{
    Queue narrow(1);
    for (const unsigned int limit : {60000U, 0xFFFFFFFEU, NO_LIMIT}) {
        SCOPED_TRACE(limit);
        EXPECT_TRUE(narrow.insert(&items[0], 0));
        Waiter producer([&] { return narrow.insert(&items[1], limit); });
        EXPECT_EQ(0, take(narrow));
        EXPECT_EQ(1, producer.outcome());
        EXPECT_EQ(1, take(narrow));
    }
}

TEST_F(QueueTest, ShutdownUnblocksAProducer)
{
    std::atomic<int> destroyed{0};
    Queue narrow(1);
    EXPECT_TRUE(narrow.insert(new Item(0, &destroyed), 0));
    Waiter limited([&] { return narrow.insert(&items[1], 60000); });
    Waiter unlimited([&] { return narrow.insert(&items[2], NO_LIMIT); });
    narrow.shutdown();
    EXPECT_EQ(0, limited.outcome());
    EXPECT_EQ(0, unlimited.outcome());
    EXPECT_EQ(1, destroyed);
}

TEST_F(QueueTest, ShutdownUnblocksConsumers)
{
    Waiter limited([&] { return take(queue, 60000); });
    Waiter unlimited([&] { return take(queue, NO_LIMIT); });
    queue.shutdown();
    EXPECT_EQ(-1, limited.outcome());
    EXPECT_EQ(-1, unlimited.outcome());
}

TEST_F(QueueTest, CompleteUnblocksConsumers)
{
    Waiter limited([&] { return take(queue, 60000); });
    Waiter unlimited([&] { return take(queue, NO_LIMIT); });
    queue.complete();
    EXPECT_EQ(-1, limited.outcome());
    EXPECT_EQ(-1, unlimited.outcome());
}

TEST_F(QueueTest, NextReturnsElementsOfACompletedQueue)
{
    EXPECT_TRUE(queue.insert(&items[0], 0));
    EXPECT_TRUE(queue.insert(&items[1], 0));
    queue.complete();
    EXPECT_EQ(0, take(queue, NO_LIMIT));
    EXPECT_EQ(1, take(queue, 60000));
    EXPECT_EQ(-1, take(queue, NO_LIMIT));
    EXPECT_EQ(-1, take(queue, 60000));
}

TEST_F(QueueTest, CompletedQueueAcceptsElements)
{
    queue.complete();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(queue.insert(&items[i], NO_LIMIT));
    }
    EXPECT_FALSE(queue.insert(&items[3], 0));
    Waiter producer([&] { return queue.insert(&items[3], NO_LIMIT); });
    EXPECT_EQ(0, take(queue));
    EXPECT_EQ(1, producer.outcome());
    EXPECT_EQ(1, take(queue));
    EXPECT_EQ(2, take(queue));
    EXPECT_EQ(3, take(queue));
}

TEST_F(QueueTest, ReadyAndCompletedReturnTheState)
{
    EXPECT_TRUE(queue.ready());
    EXPECT_FALSE(queue.completed());
    queue.complete();
    EXPECT_TRUE(queue.ready());
    EXPECT_TRUE(queue.completed());
    queue.complete();
    EXPECT_TRUE(queue.ready());
    EXPECT_TRUE(queue.completed());
    queue.shutdown();
    EXPECT_FALSE(queue.ready());
    EXPECT_FALSE(queue.completed());
    queue.complete();
    EXPECT_FALSE(queue.ready());
    EXPECT_FALSE(queue.completed());
    queue.shutdown();
    EXPECT_FALSE(queue.ready());
}

TEST_F(QueueTest, InsertAndNextFailAfterShutdown)
{
    queue.shutdown();
    EXPECT_FALSE(queue.insert(&items[0], 0));
    EXPECT_FALSE(queue.insert(&items[0], 60000));
    EXPECT_FALSE(queue.insert(&items[0], NO_LIMIT));
    EXPECT_EQ(nullptr, queue.next(0));
    EXPECT_EQ(nullptr, queue.next(60000));
    EXPECT_EQ(nullptr, queue.next(NO_LIMIT));
}

TEST(Queue, ShutdownDestroysTheRemainingElements)
{
    std::atomic<int> destroyed{0};
    Queue queue(10);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(queue.insert(new Item(i, &destroyed), 0));
    }
    delete queue.next(0);
    EXPECT_EQ(1, destroyed);
    queue.shutdown();
    EXPECT_EQ(5, destroyed);
    queue.shutdown();
    EXPECT_EQ(5, destroyed);
}

TEST(Queue, DestructorDestroysTheRemainingElements)
{
    std::atomic<int> destroyed{0};
    {
        Queue queue(10);
        EXPECT_TRUE(queue.insert(new Item(0, &destroyed), 0));
        EXPECT_TRUE(queue.insert(new Item(1, &destroyed), 0));
        queue.complete();
    }
    EXPECT_EQ(2, destroyed);
}

TEST(Queue, ReferenceCountedElementsAreReleased)
{
    std::atomic<int> destroyed{0};
    auto* const kept = new CountedItem(destroyed);
    const RcoRef<CountedItem> holder(kept);
    auto* const left = new CountedItem(destroyed);
    for (CountedItem* const item : {kept, left}) {
        item->acquireRef();
    }
    Queue queue(2);
    EXPECT_TRUE(queue.insert(kept, 0));
    EXPECT_TRUE(queue.insert(left, 0));
    EXPECT_EQ(2U, kept->refCount());
    queue.shutdown();
    EXPECT_EQ(1, destroyed) << "one reference is released; the object is not deleted";
    EXPECT_EQ(1U, kept->refCount());
}

/** Uses its queue in its destructor, and stores the stack trace of that. */
class QueueUser : public QueueElement
{
public:
    QueueUser(Queue& itsQueue, std::vector<bool>& accepted, nim::sys::StackTrace& itsTrace)
        : queue(itsQueue), inserts(accepted), trace(itsTrace)
    {
    }
    ~QueueUser() override
    {
        Item item;
        // On another thread, to check that the lock is free and not just recursive.
        std::thread([&] { inserts.push_back(queue.insert(&item, NO_LIMIT)); }).join();
        trace = nim::sys::StackTrace();
    }

private:
    Queue& queue;
    std::vector<bool>& inserts;
    nim::sys::StackTrace& trace;
};

TEST(Queue, ElementsAreDestroyedWithoutTheLock)
{
    std::vector<bool> accepted;
    nim::sys::StackTrace trace;
    {
        Queue queue(2);
        EXPECT_TRUE(queue.insert(new QueueUser(queue, accepted, trace), 0));
        EXPECT_TRUE(queue.insert(new QueueUser(queue, accepted, trace), 0));
    }
    EXPECT_EQ((std::vector<bool>{false, false}), accepted);
    ASSERT_LE(2U, trace.trace().size());
    EXPECT_EQ(0U, trace.trace()[0].find("com.kor.dal.nim.mt.Queue.shutdown():"));
    EXPECT_EQ(0U, trace.trace()[1].find("com.kor.dal.nim.mt.Queue.~Queue():"));
}

}
