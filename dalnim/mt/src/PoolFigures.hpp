#ifndef DALNIM_MT_SRC_POOLFIGURES_HPP
#define DALNIM_MT_SRC_POOLFIGURES_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/mt/PoolStatistics.hpp>

#include <atomic>
#include <cstddef>
#include <memory>

namespace com::kor::dal::nim::mt {

/**
 * The counters of a pool that collects statistics. Each worker writes a set of its own; threads that add
 * tasks use one of several sets, selected by their thread ID. No two of these share a cache line.
 *
 * Thread safety: any thread may call any operation, except that each worker has its own index, and begins and
 * ends one task at a time.
 */
class PoolFigures
{
public:
    /** A task that a worker runs. */
    struct Running
    {
        /** Number of bytes of a name that are stored. */
        static constexpr std::size_t NAME_SIZE = 64;

        /** ID of the task, or 0 if the worker runs none. */
        TaskID_t task = 0;
        /** Number of tasks that the worker has begun. */
        UInt64_t number = 0;
        /** Time since the start of the task, in nanoseconds. */
        UInt64_t nanoseconds = 0;
        /** Thread ID of the worker. */
        ThreadID_t thread = 0;
        /** Name of the task, truncated if it is longer, with a terminator. */
        char name[NAME_SIZE + 1] = {};
    };

    /** @throws std::bad_alloc  if memory runs out */
    explicit PoolFigures(unsigned int workers);

    /** Returns the time on the monotonic clock, in nanoseconds. */
    static UInt64_t now() noexcept;

    /** Counts a task that is queued. */
    void countSubmitted() noexcept
    {
        stripe().submitted.fetch_add(1, std::memory_order_relaxed);
    }
    /** Counts a task that is not queued. */
    void countRefused() noexcept
    {
        stripe().refused.fetch_add(1, std::memory_order_relaxed);
    }
    /** Counts a queued task that is discarded. */
    void countDiscarded() noexcept
    {
        stripe().discarded.fetch_add(1, std::memory_order_release);
    }

    /**
     * Counts a task that begins.
     * @param worker     index of the calling worker
     * @param submitted  time at which it was queued
     * @param name       its name, of `length` bytes
     * @return the time at which it has begun
     */
    UInt64_t begin(unsigned int worker, UInt64_t submitted, TaskID_t task, const char* name,
                   std::size_t length) noexcept;
    /**
     * Counts the end of the task that the worker has begun last.
     * @param begun  result of begin()
     */
    void end(unsigned int worker, UInt64_t begun, bool hasThrown) noexcept;

    /** Sets the counts and the histograms of `statistics`. */
    void read(PoolStatistics& statistics) const noexcept;
    /** Returns the task that a worker runs. */
    Running running(unsigned int worker) const noexcept;

    /** Returns the number of workers. */
    unsigned int workers() const noexcept
    {
        return _workerCount;
    }

private:
    static constexpr std::size_t CACHE_LINE = 64;
    static constexpr unsigned int STRIPES = 16;

    typedef std::atomic<UInt64_t> Count;

    /** The counters of the threads with certain IDs. */
    struct alignas(CACHE_LINE) Stripe
    {
        Count submitted{0};
        Count refused{0};
        Count discarded{0};
    };

    /** A histogram that only one thread writes. */
    struct Times
    {
        void add(UInt64_t nanoseconds) noexcept;
        void addTo(PoolStatistics::Histogram& histogram) const noexcept;

        Count counts[PoolStatistics::Histogram::BUCKETS] = {};
        Count microseconds{0};
    };

    /** The counters of a worker, which alone writes them, and the task that it runs. */
    struct alignas(CACHE_LINE) Worker
    {
        Count begun{0};
        Count finished{0};
        Count thrown{0};
        /**
         * Number of changes of the members below, odd during a change. A reader that finds an even number,
         * and the same one before and after, has read the values of one moment.
         */
        Count version{0};
        std::atomic<TaskID_t> task{0};
        std::atomic<UInt32_t> nameLength{0};
        std::atomic<ThreadID_t> thread{0};
        Count begunAt{0};
        Count name[Running::NAME_SIZE / sizeof(UInt64_t)] = {};
        Times waitingTime;
        Times runningTime;
    };

    static void increment(Count& count, UInt64_t amount = 1) noexcept;
    static void setTask(Worker& worker, TaskID_t task, UInt64_t begunAt, const char* name,
                        std::size_t length) noexcept;
    static Running copyTask(const Worker& worker) noexcept;
    Stripe& stripe() noexcept;

    Stripe _stripes[STRIPES];
    const unsigned int _workerCount;
    const std::unique_ptr<Worker[]> _workers;
};

}

#endif
