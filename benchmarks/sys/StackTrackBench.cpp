// The cost of a StackTrack in a function, and of the stack trace of an error.

#include <dalnim/sys/StackTrace.hpp>
#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/ThreadState.hpp>

#include <benchmark/benchmark.h>

#include <atomic>
#include <stdexcept>

namespace {

using com::kor::dal::nim::sys::StackTrace;
using com::kor::dal::nim::sys::StackTrack;
using com::kor::dal::nim::sys::system_error;
using com::kor::dal::nim::sys::internal::ThreadState;

void enterAndLeave(benchmark::State& state)
{
    const StackTrack outer("outer()", "Bench", "com.kor.dal.nim", __LINE__);
    for (auto _ : state) {
        const StackTrack track("enterAndLeave()", "Bench", "com.kor.dal.nim", __LINE__);
        benchmark::DoNotOptimize(&track);
    }
}
BENCHMARK(enterAndLeave);

void currentThreadState(benchmark::State& state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(&ThreadState::current());
    }
}
BENCHMARK(currentThreadState);

void bareAtomicCounting(benchmark::State& state)
{
    std::atomic<int> count{1};
    for (auto _ : state) {
        benchmark::DoNotOptimize(count.fetch_add(1, std::memory_order_relaxed));
        benchmark::DoNotOptimize(count.fetch_sub(1, std::memory_order_acq_rel));
    }
}
BENCHMARK(bareAtomicCounting);

/** Calls `action` with `tracks` open tracks, including the caller's. */
template <class Action>
void underTracks(int tracks, const Action& action)
{
    const StackTrack track("underTracks()", "Bench", "com.kor.dal.nim", __LINE__);
    if (tracks > 1) {
        underTracks(tracks - 1, action);
    } else {
        action();
    }
}

void captureStackTrace(benchmark::State& state)
{
    underTracks(static_cast<int>(state.range(0)), [&state] {
        for (auto _ : state) {
            const StackTrace trace;
            benchmark::DoNotOptimize(&trace);
        }
    });
}
BENCHMARK(captureStackTrace)->Arg(1)->Arg(5)->Arg(20);

void buildAnError(benchmark::State& state)
{
    underTracks(5, [&state] {
        for (auto _ : state) {
            const system_error error(22, "Attempt to dereference null reference.");
            benchmark::DoNotOptimize(&error);
        }
    });
}
BENCHMARK(buildAnError);

void throwAnError(benchmark::State& state)
{
    underTracks(5, [&state] {
        for (auto _ : state) {
            try {
                throw system_error(22, "Attempt to dereference null reference.");
            } catch (const system_error& error) {
                benchmark::DoNotOptimize(error.error());
            }
        }
    });
}
BENCHMARK(throwAnError);

void throwAStandardError(benchmark::State& state)
{
    for (auto _ : state) {
        try {
            throw std::runtime_error("Attempt to dereference null reference.");
        } catch (const std::runtime_error& error) {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(throwAStandardError);

}
