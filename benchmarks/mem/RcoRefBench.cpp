// Copying and releasing references, compared with similar classes and with bare atomic counting.

#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mem/RefCntObject.hpp>

#include <benchmark/benchmark.h>

#ifdef DALNIM_BENCH_POCO
#include <Poco/AutoPtr.h>
#include <Poco/RefCountedObject.h>
#endif
#ifdef DALNIM_BENCH_INTRUSIVE_PTR
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#endif

#include <atomic>
#include <memory>
#include <utility>

namespace {

using com::kor::dal::nim::mem::RcoRef;
using com::kor::dal::nim::mem::RefCntObject;

class Counted : public RefCntObject
{
public:
    Counted(bool count_refs, bool mt_safe) : RefCntObject(count_refs, mt_safe) {}
};

void copyAndDrop(benchmark::State& state, bool count_refs, bool mt_safe)
{
    Counted* const object = new Counted(count_refs, mt_safe);
    {
        RcoRef<Counted> ref(object);
        for (auto _ : state) {
            RcoRef<Counted> copy(ref);
            benchmark::DoNotOptimize(copy);
        }
    }
    if (!count_refs) {
        delete object;
    }
}
BENCHMARK_CAPTURE(copyAndDrop, thread_safe, true, true);
BENCHMARK_CAPTURE(copyAndDrop, one_thread, true, false);
BENCHMARK_CAPTURE(copyAndDrop, not_counted, false, false);

void moveAround(benchmark::State& state)
{
    RcoRef<Counted> ref(new Counted(true, true));
    for (auto _ : state) {
        RcoRef<Counted> moved(std::move(ref));
        benchmark::DoNotOptimize(moved);
        ref = std::move(moved);
        benchmark::DoNotOptimize(ref);
    }
}
BENCHMARK(moveAround);

void assignInTurn(benchmark::State& state)
{
    const RcoRef<Counted> one(new Counted(true, true));
    const RcoRef<Counted> other(new Counted(true, true));
    RcoRef<Counted> ref;
    for (auto _ : state) {
        ref = one;
        benchmark::DoNotOptimize(ref);
        ref = other;
        benchmark::DoNotOptimize(ref);
    }
}
BENCHMARK(assignInTurn);

void makeAndDrop(benchmark::State& state)
{
    for (auto _ : state) {
        RcoRef<Counted> ref(new Counted(true, true));
        benchmark::DoNotOptimize(ref);
    }
}
BENCHMARK(makeAndDrop);

/** All threads use the same object. */
void copyAndDropShared(benchmark::State& state)
{
    static const RcoRef<Counted> shared(new Counted(true, true));
    for (auto _ : state) {
        RcoRef<Counted> copy(shared);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyAndDropShared)->Threads(2)->UseRealTime();

void standardCopyAndDrop(benchmark::State& state)
{
    const auto ref = std::make_shared<int>(1);
    for (auto _ : state) {
        std::shared_ptr<int> copy(ref);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(standardCopyAndDrop);

#ifdef DALNIM_BENCH_POCO
class PocoCounted : public Poco::RefCountedObject
{};

void copyAndDropPoco(benchmark::State& state)
{
    const Poco::AutoPtr<PocoCounted> ref(new PocoCounted);
    for (auto _ : state) {
        Poco::AutoPtr<PocoCounted> copy(ref);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyAndDropPoco);

void makeAndDropPoco(benchmark::State& state)
{
    for (auto _ : state) {
        Poco::AutoPtr<PocoCounted> ref(new PocoCounted);
        benchmark::DoNotOptimize(ref);
    }
}
BENCHMARK(makeAndDropPoco);
#endif

#ifdef DALNIM_BENCH_INTRUSIVE_PTR
class BoostCounted : public boost::intrusive_ref_counter<BoostCounted, boost::thread_safe_counter>
{
public:
    virtual ~BoostCounted() = default;
};

void copyAndDropBoost(benchmark::State& state)
{
    const boost::intrusive_ptr<BoostCounted> ref(new BoostCounted);
    for (auto _ : state) {
        boost::intrusive_ptr<BoostCounted> copy(ref);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyAndDropBoost);

void makeAndDropBoost(benchmark::State& state)
{
    for (auto _ : state) {
        boost::intrusive_ptr<BoostCounted> ref(new BoostCounted);
        benchmark::DoNotOptimize(ref);
    }
}
BENCHMARK(makeAndDropBoost);
#endif

void standardMakeAndDrop(benchmark::State& state)
{
    for (auto _ : state) {
        auto ref = std::make_shared<int>(1);
        benchmark::DoNotOptimize(ref);
    }
}
BENCHMARK(standardMakeAndDrop);

void standardCopyAndDropShared(benchmark::State& state)
{
    static const auto shared = std::make_shared<int>(1);
    for (auto _ : state) {
        std::shared_ptr<int> copy(shared);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(standardCopyAndDropShared)->Threads(2)->UseRealTime();

void bareAtomicCounting(benchmark::State& state)
{
    std::atomic<int> count{1};
    for (auto _ : state) {
        benchmark::DoNotOptimize(count.fetch_add(1, std::memory_order_relaxed));
        benchmark::DoNotOptimize(count.fetch_sub(1, std::memory_order_acq_rel));
    }
}
BENCHMARK(bareAtomicCounting);

}
