// Starting and joining a thread, compared with the standard library.

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Thread.hpp>

#include <benchmark/benchmark.h>

#include <thread>

#ifdef DALNIM_BENCH_POCO
#include <Poco/Runnable.h>
#include <Poco/Thread.h>
#endif

namespace {

namespace mt = com::kor::dal::nim::mt;

class EmptyWork : public mt::Runnable
{
public:
    void run() override {}
};

void dalnimThread(benchmark::State& state)
{
    EmptyWork work;
    for (auto _ : state) {
        mt::Thread thread(work);
        thread.start();
        thread.join();
    }
}
BENCHMARK(dalnimThread)->UseRealTime();

void dalnimThreadAgain(benchmark::State& state)
{
    EmptyWork work;
    mt::Thread thread(work);
    for (auto _ : state) {
        thread.start();
        thread.join();
    }
}
BENCHMARK(dalnimThreadAgain)->UseRealTime();

void standardThread(benchmark::State& state)
{
    for (auto _ : state) {
        std::thread thread([] {});
        thread.join();
    }
}
BENCHMARK(standardThread)->UseRealTime();

#ifdef DALNIM_BENCH_POCO
class PocoWork : public Poco::Runnable
{
public:
    void run() override {}
};

void pocoThread(benchmark::State& state)
{
    PocoWork work;
    for (auto _ : state) {
        Poco::Thread thread;
        thread.start(work);
        thread.join();
    }
}
BENCHMARK(pocoThread)->UseRealTime();
#endif

}
