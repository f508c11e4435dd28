#ifndef BENCHMARKS_LATENCIES_HPP
#define BENCHMARKS_LATENCIES_HPP

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

/** Returns the monotonic time in nanoseconds. */
inline std::int64_t nanoseconds()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/** The distribution of durations in nanoseconds, each rounded by less than 1 %. One thread uses it. */
class Latencies
{
public:
    void add(std::int64_t duration)
    {
        ++counts[bucketOf(static_cast<std::uint64_t>(duration > 0 ? duration : 0))];
    }

    void add(const Latencies& others)
    {
        for (std::size_t bucket = 0; bucket < BUCKETS; ++bucket) {
            counts[bucket] += others.counts[bucket];
        }
    }

    /** Returns the duration that `fraction` of all durations do not exceed, in seconds. */
    double quantile(double fraction) const
    {
        std::uint64_t total = 0;
        for (const std::uint64_t count : counts) {
            total += count;
        }
        const double rank = fraction * static_cast<double>(total);
        std::uint64_t seen = 0;
        for (std::size_t bucket = 0; bucket < BUCKETS; ++bucket) {
            seen += counts[bucket];
            if (seen != 0 && static_cast<double>(seen) >= rank) {
                return 1e-9 * middleOf(bucket);
            }
        }
        return 0;
    }

private:
    // Durations below LINEAR have a bucket each; from there on, each power of two has LINEAR / 2 buckets.
    static constexpr unsigned int LINEAR_BITS = 7;
    static constexpr std::uint64_t LINEAR = 1U << LINEAR_BITS;
    static constexpr std::size_t BUCKETS = LINEAR + (64 - LINEAR_BITS) * (LINEAR / 2);

    static std::size_t bucketOf(std::uint64_t duration)
    {
        if (duration < LINEAR) {
            return duration;
        }
        const unsigned int shift = 64 - LINEAR_BITS - static_cast<unsigned int>(__builtin_clzll(duration));
        return shift * (LINEAR / 2) + (duration >> shift);
    }

    static double middleOf(std::size_t bucket)
    {
        if (bucket < LINEAR) {
            return static_cast<double>(bucket);
        }
        const std::size_t shift = bucket / (LINEAR / 2) - 1;
        const std::uint64_t lowest = (bucket - shift * (LINEAR / 2)) << shift;
        return static_cast<double>(lowest) + static_cast<double>((std::uint64_t(1) << shift) - 1) / 2;
    }

    std::array<std::uint64_t, BUCKETS> counts = {};
};

/** Merges the durations that the threads of one repetition have measured. */
class MergedLatencies
{
public:
    /**
     * Adds the durations of a thread, after its last iteration. The last thread sets the counters "p50",
     * "p99" and "p99.9" of its state, in seconds; the counters of a repetition are the sums of those of its
     * threads.
     */
    void report(const Latencies& own, benchmark::State& state)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        all.add(own);
        if (++reported < state.threads()) {
            return;
        }
        state.counters["p50"] = all.quantile(0.5);
        state.counters["p99"] = all.quantile(0.99);
        state.counters["p99.9"] = all.quantile(0.999);
        all = Latencies();
        reported = 0;
    }

private:
    std::mutex mutex;
    Latencies all;
    int reported = 0;
};

/** A benchmark of the part of a duration that is the clock's. */
inline void latenciesOfNothing(benchmark::State& state)
{
    static MergedLatencies merged;
    Latencies own;
    for (auto _ : state) {
        const std::int64_t start = nanoseconds();
        own.add(nanoseconds() - start);
    }
    merged.report(own, state);
}

#endif
