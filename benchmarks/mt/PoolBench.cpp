// Runs 100,000 empty tasks in a pool of two workers, including its start and shutdown: the library's pool,
// with contexts of several sizes, compared with similar classes.

#include "PlainPool.hpp"

#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/type/ContainerContext.hpp>

#include <benchmark/benchmark.h>

#include <future>
#include <memory>
#include <thread>
#include <vector>

#ifdef DALNIM_BENCH_ASIO
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#endif
#ifdef DALNIM_BENCH_POCO
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#endif
#ifdef DALNIM_BENCH_TBB
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#endif

namespace {

namespace nim = com::kor::dal::nim;

constexpr unsigned int WORKERS = 2;
constexpr unsigned int TASKS = 100000;

void countTasks(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * TASKS);
}

class EmptyTask : public nim::mt::Task
{
public:
    EmptyTask() : Task("empty") {}
    void run() override {}
};

class Entry : public nim::mem::RefCntObject
{};

/** Adds shared entries to the context of the calling thread. */
class Entries
{
public:
    explicit Entries(std::int64_t count)
    {
        for (std::int64_t i = 0; i < count; ++i) {
            context->add(nim::mem::RefCntObjectRef(new Entry), nim::type::Context::allocateKey(1));
        }
    }
    Entries(const Entries&) = delete;
    Entries& operator=(const Entries&) = delete;
    ~Entries()
    {
        context->clearContent();
    }

private:
    nim::type::ContainerContextRef context = nim::type::ContainerContext::current();
};

/** The tasks exist before and are owned by the submitter. */
void dalnimPool(benchmark::State& state)
{
    const Entries entries(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        auto tasks = std::make_unique<std::vector<EmptyTask>>(TASKS);
        state.ResumeTiming();
        {
            nim::mt::ThreadPool pool(nullptr, WORKERS, 0, 0, 0, 0, TASKS);
            for (EmptyTask& task : *tasks) {
                pool.add(task);
            }
            pool.shutdown(true);
        }
        state.PauseTiming();
        tasks.reset();
        state.ResumeTiming();
    }
    countTasks(state);
}
BENCHMARK(dalnimPool)->Arg(0)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

/** The tasks are created for the pool, which deletes them when they end. */
void dalnimPoolManaged(benchmark::State& state)
{
    const Entries entries(state.range(0));
    for (auto _ : state) {
        nim::mt::ThreadPool pool(nullptr, WORKERS, 0, 0, 0, 0, TASKS);
        for (unsigned int i = 0; i < TASKS; ++i) {
            pool.add(new EmptyTask, true);
        }
        pool.shutdown(true);
    }
    countTasks(state);
}
BENCHMARK(dalnimPoolManaged)->Arg(0)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

#ifdef DALNIM_BENCH_ASIO
void asioPool(benchmark::State& state)
{
    for (auto _ : state) {
        boost::asio::thread_pool pool(WORKERS);
        for (unsigned int i = 0; i < TASKS; ++i) {
            boost::asio::post(pool, [] {});
        }
        pool.join();
    }
    countTasks(state);
}
BENCHMARK(asioPool)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

#ifdef DALNIM_BENCH_POCO
class EmptyRunnable : public Poco::Runnable
{
public:
    void run() override {}
};

/** This pool has no queue: the submitter waits for a worker. */
void pocoPool(benchmark::State& state)
{
    EmptyRunnable task;
    for (auto _ : state) {
        Poco::ThreadPool pool(WORKERS, WORKERS);
        for (unsigned int i = 0; i < TASKS; ++i) {
            while (pool.available() == 0) {
                std::this_thread::yield();
            }
            pool.start(task);
        }
        pool.joinAll();
    }
    countTasks(state);
}
BENCHMARK(pocoPool)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

#ifdef DALNIM_BENCH_TBB
/** Counts the tasks that have run, since an arena does not wait for tasks that were enqueued. */
class TaskCounter
{
public:
    void count()
    {
        if (pending.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            const std::lock_guard<std::mutex> lock(mutex);
            haveRun = true;
            changed.notify_one();
        }
    }
    void wait()
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return haveRun; });
    }

private:
    std::atomic<unsigned int> pending{TASKS};
    std::mutex mutex;
    std::condition_variable changed;
    bool haveRun = false;
};

void tbbPool(benchmark::State& state)
{
    // The limit counts the submitter, too.
    const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, WORKERS + 1);
    for (auto _ : state) {
        tbb::task_arena arena(WORKERS, 0);
        TaskCounter tasks;
        for (unsigned int i = 0; i < TASKS; ++i) {
            arena.enqueue([&tasks] { tasks.count(); });
        }
        tasks.wait();
    }
    countTasks(state);
}
BENCHMARK(tbbPool)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

/** One thread per task, as many concurrently as the pools have workers. */
void standardAsync(benchmark::State& state)
{
    for (auto _ : state) {
        std::future<void> running[WORKERS];
        for (unsigned int i = 0; i < TASKS; ++i) {
            running[i % WORKERS] = std::async(std::launch::async, [] {});
        }
    }
    countTasks(state);
}
BENCHMARK(standardAsync)->UseRealTime()->Unit(benchmark::kMillisecond);

void plainPool(benchmark::State& state)
{
    for (auto _ : state) {
        PlainPool pool(WORKERS);
        for (unsigned int i = 0; i < TASKS; ++i) {
            pool.add([] {});
        }
    }
    countTasks(state);
}
BENCHMARK(plainPool)->UseRealTime()->Unit(benchmark::kMillisecond);

}
