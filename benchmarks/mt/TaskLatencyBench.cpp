// The time from the submission of a task to its begin on a worker, in pools of two workers: one task at a
// time while all workers are idle, and many in a row. The library's pool and its queue of closures, compared
// with similar classes.

#include "../Latencies.hpp"
#include "PlainPool.hpp"

#include <dalnim/mt/ThreadPool.hpp>
#include <qv/rtlapi/RX_Closure.hpp>
#include <qv/rtlapi/RX_ServerQueue.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <future>
#include <string>
#include <thread>

#ifdef DALNIM_BENCH_ASIO
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#endif
#ifdef DALNIM_BENCH_POCO
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#endif
#ifdef DALNIM_BENCH_TBB
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#endif

namespace {

namespace nim = com::kor::dal::nim;

constexpr unsigned int WORKERS = 2;
/** Tasks that are submitted in a row. */
constexpr std::size_t BATCH = 64;
constexpr std::int64_t BATCHES = 300;
/** Tasks that are submitted one at a time. */
constexpr std::int64_t SINGLE_TASKS = 3000;
/** Pause before each of them, in nanoseconds. Longer than an idle worker spins before it blocks. */
constexpr std::int64_t PAUSE = 100000;

/** The times of one task. */
class Submission
{
public:
    /** Called by the submitter before the pool is called. */
    void submit()
    {
        begun.store(0, std::memory_order_relaxed);
        submitted = nanoseconds();
    }
    /** Called by the task. The submitter may destroy this object immediately afterwards. */
    void begin()
    {
        begun.store(nanoseconds(), std::memory_order_release);
    }
    /** Waits until the task has begun, without blocking. Returns the time since the submission. */
    std::int64_t wait() const
    {
        std::int64_t time = 0;
        while ((time = begun.load(std::memory_order_acquire)) == 0) {
            std::this_thread::yield();
        }
        return time - submitted;
    }

private:
    std::int64_t submitted = 0;
    std::atomic<std::int64_t> begun{0};
};

class DalnimPool
{
public:
    static constexpr char NAME[] = "dalnim";

    void submit(Submission& submission)
    {
        pool.add(new SubmittedTask(submission), true);
    }

private:
    class SubmittedTask : public nim::mt::Task
    {
    public:
        explicit SubmittedTask(Submission& submitted) : Task("submitted"), submission(submitted) {}
        void run() override
        {
            submission.begin();
        }

    private:
        Submission& submission;
    };

    nim::mt::ThreadPool pool{nullptr, WORKERS, 0, 0, 0, 0, BATCH};
};

/** The queue of closures, without tasks. */
class ServerQueue
{
public:
    static constexpr char NAME[] = "RX_ServerQueue";

    ServerQueue() : queue(new RX_ServerQueue(BATCH))
    {
        queue->addThreads(WORKERS);
    }
    ServerQueue(const ServerQueue&) = delete;
    ServerQueue& operator=(const ServerQueue&) = delete;
    ~ServerQueue()
    {
        queue->close();
        queue->detach();
    }

    void submit(Submission& submission)
    {
        queue->put(new SubmittedClosure(submission));
    }

private:
    class SubmittedClosure : public RX_Closure
    {
    public:
        explicit SubmittedClosure(Submission& submitted) : submission(submitted) {}
        void apply() override
        {
            submission.begin();
        }

    private:
        Submission& submission;
    };

    RX_ServerQueue* const queue;
};

#ifdef DALNIM_BENCH_ASIO
class AsioPool
{
public:
    static constexpr char NAME[] = "Boost.Asio";

    void submit(Submission& submission)
    {
        boost::asio::post(pool, [&submission] { submission.begin(); });
    }

private:
    boost::asio::thread_pool pool{WORKERS};
};
#endif

#ifdef DALNIM_BENCH_TBB
class TbbArena
{
public:
    static constexpr char NAME[] = "oneTBB";

    void submit(Submission& submission)
    {
        arena.enqueue([&submission] { submission.begin(); });
    }

private:
    // The limit counts the submitter, too.
    const tbb::global_control limit{tbb::global_control::max_allowed_parallelism, WORKERS + 1};
    tbb::task_arena arena{WORKERS, 0};
};
#endif

#ifdef DALNIM_BENCH_POCO
/** This pool has no queue: the submitter waits for a worker. */
class PocoPool
{
public:
    static constexpr char NAME[] = "POCO";

    void submit(Submission& submission)
    {
        while (pool.available() == 0) {
            std::this_thread::yield();
        }
        Begin& begin = runnables[next++ % BATCH];
        begin.submission = &submission;
        pool.start(begin);
    }

private:
    class Begin : public Poco::Runnable
    {
    public:
        void run() override
        {
            submission->begin();
        }

        Submission* submission = nullptr;
    };

    std::array<Begin, BATCH> runnables;
    std::size_t next = 0;
    Poco::ThreadPool pool{WORKERS, WORKERS};
};
#endif

/** One thread per task. */
class StandardAsync
{
public:
    static constexpr char NAME[] = "std::async";

    void submit(Submission& submission)
    {
        running[next++ % BATCH] = std::async(std::launch::async, [&submission] { submission.begin(); });
    }

private:
    std::array<std::future<void>, BATCH> running;
    std::size_t next = 0;
};

class HandWritten
{
public:
    static constexpr char NAME[] = "hand-written";

    void submit(Submission& submission)
    {
        pool.add([&submission] { submission.begin(); });
    }

private:
    PlainPool pool{WORKERS};
};

void pauseBeforeNext()
{
    const std::int64_t end = nanoseconds() + PAUSE;
    while (nanoseconds() < end) {
    }
}

template <class Pool>
void toIdleWorkers(benchmark::State& state)
{
    static MergedLatencies merged;
    Latencies own;
    Pool pool;
    for (auto _ : state) {
        pauseBeforeNext();
        Submission submission;
        submission.submit();
        pool.submit(submission);
        own.add(submission.wait());
    }
    merged.report(own, state);
}

template <class Pool>
void inARow(benchmark::State& state)
{
    static MergedLatencies merged;
    Latencies own;
    std::array<Submission, BATCH> submissions;
    Pool pool;
    for (auto _ : state) {
        for (Submission& submission : submissions) {
            submission.submit();
            pool.submit(submission);
        }
        for (const Submission& submission : submissions) {
            own.add(submission.wait());
        }
    }
    merged.report(own, state);
}

template <class Pool>
void registerLatencies()
{
    const std::string name = Pool::NAME;
    benchmark::RegisterBenchmark(("latency/idle/" + name).c_str(), toIdleWorkers<Pool>)
        ->Iterations(SINGLE_TASKS)
        ->UseRealTime();
    benchmark::RegisterBenchmark(("latency/row/" + name).c_str(), inARow<Pool>)
        ->Iterations(BATCHES)
        ->UseRealTime();
}

BENCHMARK(latenciesOfNothing)->Name("latency/nothing")->Iterations(SINGLE_TASKS)->UseRealTime();

const bool areRegistered = [] {
    registerLatencies<DalnimPool>();
    registerLatencies<ServerQueue>();
#ifdef DALNIM_BENCH_ASIO
    registerLatencies<AsioPool>();
#endif
#ifdef DALNIM_BENCH_TBB
    registerLatencies<TbbArena>();
#endif
#ifdef DALNIM_BENCH_POCO
    registerLatencies<PocoPool>();
#endif
    registerLatencies<StandardAsync>();
    registerLatencies<HandWritten>();
    return true;
}();

}
