#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/PoolFigures.hpp>

#include <qv/pmx/src/perturb.hpp>
#include <qv/pmx/src/processor.hpp>
#include <qv/pmx/thread.h>

#include <algorithm>
#include <chrono>
#include <cstring>

namespace com::kor::dal::nim::mt {

namespace {

constexpr UInt64_t NANOSECONDS_PER_MICROSECOND = 1000;

/** Number of attempts to read the task of a worker, which changes every few microseconds at most. */
constexpr int ATTEMPTS = 1000;

UInt64_t elapsed(UInt64_t from, UInt64_t to) noexcept
{
    // The clocks of two processors may differ by some nanoseconds.
    return to > from ? to - from : 0;
}

}

PoolFigures::PoolFigures(unsigned int workers) : _workerCount(workers), _workers(new Worker[workers]) {}

UInt64_t PoolFigures::now() noexcept
{
    return static_cast<UInt64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

/** Returns the counters of the calling thread. */
PoolFigures::Stripe& PoolFigures::stripe() noexcept
{
    return _stripes[static_cast<UInt32_t>(qv_si_thread_self()) % STRIPES];
}

/** Increases a count that only the calling thread changes. */
void PoolFigures::increment(Count& count, UInt64_t amount) noexcept
{
    // Relaxed load: of the thread's own store, or of one that happened before the thread replaced the worker.
    // Released to read(), which thus finds the counts of all earlier stages.
    count.store(count.load(std::memory_order_relaxed) + amount, std::memory_order_release);
}

UInt64_t PoolFigures::begin(unsigned int worker, UInt64_t submitted, TaskID_t task, const char* name,
                            std::size_t length) noexcept
{
    Worker& own = _workers[worker];
    const UInt64_t begun = now();
    own.waitingTime.add(elapsed(submitted, begun));
    increment(own.begun);
    // Released like `begun`: a reader that finds a value of this task also finds the version that the end of
    // the previous one has left, and reads again.
    own.thread.store(qv_si_thread_self(), std::memory_order_release);
    setTask(own, task, begun, name, length);
    return begun;
}

void PoolFigures::end(unsigned int worker, UInt64_t begun, bool hasThrown) noexcept
{
    Worker& own = _workers[worker];
    own.runningTime.add(elapsed(begun, now()));
    setTask(own, 0, 0, nullptr, 0);
    // In this order, and read in the reverse order: `thrown` never exceeds `finished`.
    increment(own.finished);
    qv::perturb();
    if (hasThrown) {
        increment(own.thrown);
    }
}

// Stored with release and loaded with acquire: a reader that finds one of the new values also finds the odd
// version that was stored before it.
void PoolFigures::setTask(Worker& worker, TaskID_t task, UInt64_t begunAt, const char* name,
                          std::size_t length) noexcept
{
    const UInt64_t version = worker.version.load(std::memory_order_relaxed);
    worker.version.store(version + 1, std::memory_order_relaxed);
    qv::perturb();
    worker.task.store(task, std::memory_order_release);
    worker.begunAt.store(begunAt, std::memory_order_release);
    const std::size_t stored = std::min(length, Running::NAME_SIZE);
    worker.nameLength.store(static_cast<UInt32_t>(stored), std::memory_order_release);
    for (std::size_t i = 0; i * sizeof(UInt64_t) < stored; ++i) {
        UInt64_t bytes = 0;
        std::memcpy(&bytes, name + i * sizeof bytes, std::min(sizeof bytes, stored - i * sizeof bytes));
        worker.name[i].store(bytes, std::memory_order_release);
    }
    qv::perturb();
    worker.version.store(version + 2, std::memory_order_release);
}

PoolFigures::Running PoolFigures::copyTask(const Worker& worker) noexcept
{
    Running copy;
    copy.task = worker.task.load(std::memory_order_acquire);
    copy.nanoseconds = elapsed(worker.begunAt.load(std::memory_order_acquire), now());
    const std::size_t length =
        std::min<std::size_t>(worker.nameLength.load(std::memory_order_acquire), Running::NAME_SIZE);
    for (std::size_t i = 0; i * sizeof(UInt64_t) < length; ++i) {
        const UInt64_t bytes = worker.name[i].load(std::memory_order_acquire);
        std::memcpy(copy.name + i * sizeof bytes, &bytes, sizeof bytes);
    }
    copy.name[length] = '\0';
    copy.thread = worker.thread.load(std::memory_order_acquire);
    copy.number = worker.begun.load(std::memory_order_acquire);
    return copy;
}

PoolFigures::Running PoolFigures::running(unsigned int worker) const noexcept
{
    const Worker& read = _workers[worker];
    for (int i = 0; i < ATTEMPTS; ++i) {
        const UInt64_t before = read.version.load(std::memory_order_acquire);
        if (before % 2 == 0) {
            const Running copy = copyTask(read);
            qv::perturb();
            if (read.version.load(std::memory_order_acquire) == before) {
                return copy.task != 0 ? copy : Running();
            }
        }
        qv::pausePolling();
    }
    // The worker ends one task after the other.
    return Running();
}

void PoolFigures::Times::add(UInt64_t nanoseconds) noexcept
{
    const UInt64_t time = nanoseconds / NANOSECONDS_PER_MICROSECOND;
    increment(counts[PoolStatistics::Histogram::bucket(time)]);
    increment(microseconds, time);
}

void PoolFigures::Times::addTo(PoolStatistics::Histogram& histogram) const noexcept
{
    for (unsigned int i = 0; i < PoolStatistics::Histogram::BUCKETS; ++i) {
        histogram.counts[i] += counts[i].load(std::memory_order_acquire);
    }
    histogram.microseconds += microseconds.load(std::memory_order_acquire);
}

void PoolFigures::read(PoolStatistics& statistics) const noexcept
{
    // Each stage before the one that precedes it, so that later stages never exceed earlier ones: a load that
    // acquires a stage of a task happens after the task's earlier stages, also if another thread counted
    // these with relaxed order before it queued the task.
    UInt64_t begun = 0;
    for (unsigned int i = 0; i < _workerCount; ++i) {
        const Worker& worker = _workers[i];
        const UInt64_t thrown = worker.thrown.load(std::memory_order_acquire);
        qv::perturb();
        const UInt64_t finished = worker.finished.load(std::memory_order_acquire);
        qv::perturb();
        const UInt64_t begunByWorker = worker.begun.load(std::memory_order_acquire);
        statistics.thrown += thrown;
        statistics.finished += finished;
        // The worker may have begun and ended several tasks in between.
        statistics.running += std::min(begunByWorker - finished, UInt64_t(1));
        begun += begunByWorker;
        worker.waitingTime.addTo(statistics.waitingTime);
        worker.runningTime.addTo(statistics.runningTime);
    }
    for (const Stripe& stripe : _stripes) {
        statistics.discarded += stripe.discarded.load(std::memory_order_acquire);
    }
    qv::perturb();
    for (const Stripe& stripe : _stripes) {
        statistics.submitted += stripe.submitted.load(std::memory_order_acquire);
        statistics.refused += stripe.refused.load(std::memory_order_acquire);
    }
    statistics.pending = statistics.submitted - begun - statistics.discarded;
}

}
