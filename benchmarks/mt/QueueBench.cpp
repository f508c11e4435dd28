// Passes elements from producers to as many consumers, by the library's queue and similar classes. Each pair
// of threads passes 100,000 elements.

#include <dalnim/mt/Queue.hpp>

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#ifdef DALNIM_BENCH_POCO
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#endif
#ifdef DALNIM_BENCH_TBB
#include <tbb/concurrent_queue.h>
#endif
#ifdef DALNIM_BENCH_CONCURRENTQUEUE
#include <concurrentqueue/blockingconcurrentqueue.h>
#endif

namespace {

namespace nim = com::kor::dal::nim;

constexpr std::size_t CAPACITY = 1024;
constexpr std::int64_t ELEMENTS = 100000;

/**
 * Runs pairs of threads: one calls `put(element)` for each element, the other `take()` as often. The caller
 * owns the elements.
 */
template <class Element, class Put, class Take>
void handOver(benchmark::State& state, std::vector<Element>& elements, Put put, Take take)
{
    const std::int64_t pairs = state.range(0);
    std::vector<std::thread> threads;
    for (std::int64_t pair = 0; pair < pairs; ++pair) {
        threads.emplace_back([&, pair] {
            for (std::int64_t i = 0; i < ELEMENTS; ++i) {
                put(elements[static_cast<std::size_t>(pair * ELEMENTS + i)]);
            }
        });
        threads.emplace_back([&] {
            for (std::int64_t i = 0; i < ELEMENTS; ++i) {
                benchmark::DoNotOptimize(take());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void countElements(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0) * ELEMENTS);
}

std::size_t elementCount(const benchmark::State& state)
{
    return static_cast<std::size_t>(state.range(0) * ELEMENTS);
}

class Element : public nim::mt::QueueElement
{};

void dalnimQueue(benchmark::State& state)
{
    std::vector<Element> elements(elementCount(state));
    for (auto _ : state) {
        nim::mt::Queue queue(CAPACITY);
        handOver(
            state, elements, [&](Element& element) { queue.insert(&element); }, [&] { return queue.next(); });
    }
    countElements(state);
}
BENCHMARK(dalnimQueue)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

/** A simple handwritten queue, bounded like the library's queue. */
class PlainQueue
{
public:
    explicit PlainQueue(std::size_t limit) : capacity(limit) {}

    void put(Element* element)
    {
        {
            std::unique_lock<std::mutex> lock(mutex);
            notFull.wait(lock, [this] { return elements.size() < capacity; });
            elements.push_back(element);
        }
        notEmpty.notify_one();
    }
    Element* take()
    {
        Element* element;
        {
            std::unique_lock<std::mutex> lock(mutex);
            notEmpty.wait(lock, [this] { return !elements.empty(); });
            element = elements.front();
            elements.pop_front();
        }
        notFull.notify_one();
        return element;
    }

private:
    const std::size_t capacity;
    std::mutex mutex;
    std::condition_variable notEmpty;
    std::condition_variable notFull;
    std::deque<Element*> elements;
};

void plainQueueOf(benchmark::State& state, std::size_t capacity)
{
    std::vector<Element> elements(elementCount(state));
    for (auto _ : state) {
        PlainQueue queue(capacity);
        handOver(
            state, elements, [&](Element& element) { queue.put(&element); }, [&] { return queue.take(); });
    }
    countElements(state);
}

void plainQueue(benchmark::State& state)
{
    plainQueueOf(state, CAPACITY);
}
BENCHMARK(plainQueue)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

void plainQueueUnlimited(benchmark::State& state)
{
    plainQueueOf(state, static_cast<std::size_t>(-1));
}
BENCHMARK(plainQueueUnlimited)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

#ifdef DALNIM_BENCH_POCO
void pocoQueue(benchmark::State& state)
{
    std::vector<Poco::Notification::Ptr> elements(elementCount(state));
    for (Poco::Notification::Ptr& element : elements) {
        element = new Poco::Notification;
    }
    for (auto _ : state) {
        Poco::NotificationQueue queue;
        handOver(
            state, elements, [&](Poco::Notification::Ptr& element) { queue.enqueueNotification(element); },
            [&] { return Poco::Notification::Ptr(queue.waitDequeueNotification()).get(); });
    }
    countElements(state);
}
BENCHMARK(pocoQueue)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

#ifdef DALNIM_BENCH_TBB
void tbbQueue(benchmark::State& state)
{
    std::vector<Element> elements(elementCount(state));
    for (auto _ : state) {
        tbb::concurrent_bounded_queue<Element*> queue;
        queue.set_capacity(CAPACITY);
        handOver(
            state, elements, [&](Element& element) { queue.push(&element); },
            [&] {
                Element* element = nullptr;
                queue.pop(element);
                return element;
            });
    }
    countElements(state);
}
BENCHMARK(tbbQueue)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

#ifdef DALNIM_BENCH_CONCURRENTQUEUE
/** Has no limit, and keeps only the order of the elements of one producer. */
void moodycamelQueue(benchmark::State& state)
{
    std::vector<Element> elements(elementCount(state));
    for (auto _ : state) {
        moodycamel::BlockingConcurrentQueue<Element*> queue;
        handOver(
            state, elements, [&](Element& element) { queue.enqueue(&element); },
            [&] {
                Element* element = nullptr;
                queue.wait_dequeue(element);
                return element;
            });
    }
    countElements(state);
}
BENCHMARK(moodycamelQueue)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

}
