#include <dalnim/mt/Queue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "Model.hpp"

namespace {

namespace nim = com::kor::dal::nim;
using mttest::ModelSeed;
using nim::mt::Queue;
using nim::mt::QueueElement;

constexpr unsigned int NO_LIMIT = 0xFFFFFFFF;

class Item : public QueueElement
{
public:
    Item(int itemProducer, int itemNumber, std::atomic<int>& destroyedItems)
        : producer(itemProducer), number(itemNumber), destroyed(destroyedItems)
    {
    }
    ~Item() override
    {
        ++destroyed;
    }

    const int producer;
    const int number;

private:
    std::atomic<int>& destroyed;
};

/** Random operations of one thread on a queue, with a list as the model of their results. */
class RandomOperations
{
public:
    explicit RandomOperations(std::mt19937 generator) : random(generator) {}

    void step()
    {
        const auto kind = random() % 1000;
        if (kind < 500) {
            insert();
        } else if (kind < 990) {
            take();
        } else if (kind < 997) {
            queue->complete();
            isCompleted = isReady;
            isCompletedEver |= isReady;
        } else {
            isReady = isCompleted = false;
            queue->shutdown();
            expectedDestroyed += static_cast<int>(expectedItems.size());
            expectedItems.clear();
            ASSERT_EQ(expectedDestroyed, destroyed);
            if (random() % 2 == 0) {
                queue = std::make_unique<Queue>(CAPACITY);
                isReady = true;
            }
        }
        ASSERT_EQ(isReady, queue->ready());
        ASSERT_EQ(isCompleted, queue->completed());
        ASSERT_EQ(expectedDestroyed, destroyed);
    }

    bool hasTriedAll() const
    {
        return isCompletedEver && expectedDestroyed > 0 && made > 0;
    }

private:
    static constexpr std::size_t CAPACITY = 7;

    void insert()
    {
        auto item = std::make_unique<Item>(0, made, destroyed);
        ++made;
        const bool fits = isReady && expectedItems.size() < CAPACITY;
        // Passes an unlimited time-out only if the insertion cannot block.
        ASSERT_EQ(fits, queue->insert(item.get(), fits || !isReady ? NO_LIMIT : 0));
        if (fits) {
            expectedItems.push_back(item.release()->number);
        } else {
            ++expectedDestroyed;
        }
    }

    void take()
    {
        const bool waits = isReady && !isCompleted && expectedItems.empty();
        const std::unique_ptr<QueueElement> taken(queue->next(waits ? 0 : NO_LIMIT));
        if (expectedItems.empty()) {
            ASSERT_EQ(nullptr, taken);
            return;
        }
        ASSERT_NE(nullptr, taken);
        ASSERT_EQ(expectedItems.front(), dynamic_cast<Item&>(*taken).number);
        expectedItems.pop_front();
        ++expectedDestroyed;
    }

    std::mt19937 random;
    std::atomic<int> destroyed{0};
    int made = 0;
    int expectedDestroyed = 0;
    bool isReady = true;
    bool isCompleted = false;
    bool isCompletedEver = false;
    std::deque<int> expectedItems;
    std::unique_ptr<Queue> queue = std::make_unique<Queue>(CAPACITY);
};

TEST(QueueModel, BehavesLikeAListOfOneThread)
{
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    RandomOperations operations(seed.random());
    for (int i = 0; i < mttest::modelOperations(); ++i) {
        ASSERT_NO_FATAL_FAILURE(operations.step()) << "operation " << i;
    }
    EXPECT_TRUE(operations.hasTriedAll());
}

/** Producers and consumers that use all kinds of time-outs, and a record of the items that passed. */
class Traffic
{
public:
    static constexpr int PRODUCERS = 3;
    static constexpr int CONSUMERS = 3;

    Traffic(const ModelSeed& trafficSeed, int operations)
        : seed(trafficSeed), perProducer(operations / 2 / PRODUCERS),
          taken(static_cast<std::size_t>(PRODUCERS * perProducer)), last(PRODUCERS * CONSUMERS, -1)
    {
    }

    void run()
    {
        std::vector<std::thread> producers;
        std::vector<std::thread> consumers;
        for (int i = 0; i < PRODUCERS; ++i) {
            producers.emplace_back([this, i] { produce(i); });
        }
        for (int i = 0; i < CONSUMERS; ++i) {
            consumers.emplace_back([this, i] { consume(i); });
        }
        for (std::thread& producer : producers) {
            producer.join();
        }
        queue.complete();
        for (std::thread& consumer : consumers) {
            consumer.join();
        }
    }

    /** Returns the number of items that were not removed exactly once. */
    long lostOrDuplicated() const
    {
        long count = 0;
        for (const std::atomic<unsigned char>& times : taken) {
            count += times != 1;
        }
        return count;
    }

    const ModelSeed& seed;
    const int perProducer;
    Queue queue{5};
    std::atomic<int> destroyed{0};
    std::atomic<int> disordered{0};

private:
    /** Returns a random time-out. Operations with a limit may fail, and are repeated. */
    static unsigned int limit(std::mt19937& random)
    {
        constexpr unsigned int LIMITS[] = {0, 1, 1000, NO_LIMIT};
        return LIMITS[random() % 4];
    }

    void produce(int producer)
    {
        std::mt19937 random = seed.random(producer);
        for (int i = 0; i < perProducer; ++i) {
            auto* const item = new Item(producer, i, destroyed);
            while (!queue.insert(item, limit(random))) {
                std::this_thread::yield();
            }
        }
    }

    void consume(int consumer)
    {
        std::mt19937 random = seed.random(PRODUCERS + consumer);
        for (;;) {
            // Checked first: if the queue is then empty, no item will follow.
            const bool isOver = queue.completed();
            const std::unique_ptr<QueueElement> element(queue.next(limit(random)));
            if (const auto* const item = dynamic_cast<Item*>(element.get())) {
                record(consumer, *item);
            } else if (isOver) {
                return;
            }
        }
    }

    void record(int consumer, const Item& item)
    {
        ++taken[static_cast<std::size_t>(item.producer * perProducer + item.number)];
        int& previous = last[static_cast<std::size_t>(consumer * PRODUCERS + item.producer)];
        disordered += item.number <= previous;
        previous = item.number;
    }

    /** Number of times that each item was removed. */
    std::vector<std::atomic<unsigned char>> taken;
    /** The last number of each producer that each consumer has removed. */
    std::vector<int> last;
};

TEST(QueueModel, LosesNothingBetweenThreads)
{
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    Traffic traffic(seed, mttest::modelOperations());
    traffic.run();
    EXPECT_EQ(0, traffic.lostOrDuplicated());
    EXPECT_EQ(0, traffic.disordered);
    EXPECT_EQ(Traffic::PRODUCERS * traffic.perProducer, traffic.destroyed);
    EXPECT_EQ(nullptr, traffic.queue.next(0));
}

TEST(QueueModel, ShutdownIsSafeDuringOperations)
{
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> made{0};
        std::atomic<int> destroyed{0};
        Queue queue(2);
        std::vector<std::thread> users;
        for (int i = 0; i < 2; ++i) {
            users.emplace_back([&] {
                for (;;) {
                    auto item = std::make_unique<Item>(0, 0, destroyed);
                    ++made;
                    if (!queue.insert(item.get())) {
                        return;
                    }
                    item.release();
                }
            });
            users.emplace_back([&] {
                while (const auto element = std::unique_ptr<QueueElement>(queue.next())) {
                }
            });
        }
        while (destroyed < 20) {
            std::this_thread::yield();
        }
        queue.shutdown();
        for (std::thread& user : users) {
            user.join();
        }
        EXPECT_EQ(made, destroyed);
    }
}

}
