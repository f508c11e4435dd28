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
class Dealings
{
public:
    explicit Dealings(std::mt19937 generator) : random(generator) {}

    void makeOne()
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
            gone += static_cast<int>(listed.size());
            listed.clear();
            ASSERT_EQ(gone, destroyed);
            if (random() % 2 == 0) {
                queue = std::make_unique<Queue>(CAPACITY);
                isReady = true;
            }
        }
        ASSERT_EQ(isReady, queue->ready());
        ASSERT_EQ(isCompleted, queue->completed());
        ASSERT_EQ(gone, destroyed);
    }

    bool hasSeenAll() const
    {
        return isCompletedEver && gone > 0 && made > 0;
    }

private:
    static constexpr std::size_t CAPACITY = 7;

    void insert()
    {
        auto item = std::make_unique<Item>(0, made, destroyed);
        ++made;
        const bool fits = isReady && listed.size() < CAPACITY;
        // Where it is sure not to wait it may say that it would.
        ASSERT_EQ(fits, queue->insert(item.get(), fits || !isReady ? NO_LIMIT : 0));
        if (fits) {
            listed.push_back(item.release()->number);
        } else {
            ++gone;
        }
    }

    void take()
    {
        const bool waits = isReady && !isCompleted && listed.empty();
        const std::unique_ptr<QueueElement> taken(queue->next(waits ? 0 : NO_LIMIT));
        if (listed.empty()) {
            ASSERT_EQ(nullptr, taken);
            return;
        }
        ASSERT_NE(nullptr, taken);
        ASSERT_EQ(listed.front(), dynamic_cast<Item&>(*taken).number);
        listed.pop_front();
        ++gone;
    }

    std::mt19937 random;
    std::atomic<int> destroyed{0};
    int made = 0;
    int gone = 0;
    bool isReady = true;
    bool isCompleted = false;
    bool isCompletedEver = false;
    std::deque<int> listed;
    std::unique_ptr<Queue> queue = std::make_unique<Queue>(CAPACITY);
};

TEST(QueueModel, BehavesLikeAListOfOneThread)
{
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    Dealings dealings(seed.random());
    for (int i = 0; i < mttest::modelOperations(); ++i) {
        ASSERT_NO_FATAL_FAILURE(dealings.makeOne()) << "operation " << i;
    }
    EXPECT_TRUE(dealings.hasSeenAll());
}

/** Producers and consumers that wait in every way, and a record of what went through. */
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

    /** How many items did not come out exactly once. */
    long strays() const
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
    /** One of the waits there are; those with a limit may fail and are repeated. */
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
            // Asked first: what is not there afterwards will not come any more.
            const bool isOver = queue.completed();
            const std::unique_ptr<QueueElement> element(queue.next(limit(random)));
            if (const auto* const item = dynamic_cast<Item*>(element.get())) {
                note(consumer, *item);
            } else if (isOver) {
                return;
            }
        }
    }

    void note(int consumer, const Item& item)
    {
        ++taken[static_cast<std::size_t>(item.producer * perProducer + item.number)];
        int& previous = last[static_cast<std::size_t>(consumer * PRODUCERS + item.producer)];
        disordered += item.number <= previous;
        previous = item.number;
    }

    /** How often each item came out. */
    std::vector<std::atomic<unsigned char>> taken;
    /** The last number that each consumer saw of each producer. */
    std::vector<int> last;
};

TEST(QueueModel, LosesNothingBetweenThreads)
{
    const ModelSeed seed;
    SCOPED_TRACE(seed.text());
    Traffic traffic(seed, mttest::modelOperations());
    traffic.run();
    EXPECT_EQ(0, traffic.strays());
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
