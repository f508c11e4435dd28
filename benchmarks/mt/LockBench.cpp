// Acquiring and releasing locks, on one thread and on several concurrently, compared with similar classes.

#include <dalnim/mt/CriticalSection.hpp>
#include <dalnim/mt/ReaderWriterLock.hpp>
#include <dalnim/mt/SysMutex.hpp>

#include <benchmark/benchmark.h>

#include <mutex>
#include <shared_mutex>

#ifdef DALNIM_BENCH_POCO
#include <Poco/Mutex.h>
#endif
#ifdef DALNIM_BENCH_ABSEIL
#include <absl/synchronization/mutex.h>
#endif

namespace {

namespace mt = com::kor::dal::nim::mt;

template <class Lock, void (*acquireLock)(Lock&), void (*releaseLock)(Lock&)>
void acquireAndRelease(benchmark::State& state)
{
    static Lock lock;
    static long guarded = 0;
    for (auto _ : state) {
        acquireLock(lock);
        benchmark::DoNotOptimize(guarded);
        releaseLock(lock);
    }
}

template <class Lock>
void acquire(Lock& lock)
{
    lock.acquire();
}
template <class Lock>
void release(Lock& lock)
{
    lock.release();
}
void acquireForRead(mt::ReaderWriterLock& lock)
{
    lock.acquireForRead();
}
void acquireForWrite(mt::ReaderWriterLock& lock)
{
    lock.acquireForWrite();
}
template <class Lock>
void lockIt(Lock& lock)
{
    lock.lock();
}
template <class Lock>
void unlockIt(Lock& lock)
{
    lock.unlock();
}
void lockShared(std::shared_mutex& lock)
{
    lock.lock_shared();
}
void unlockShared(std::shared_mutex& lock)
{
    lock.unlock_shared();
}

#ifdef DALNIM_BENCH_ABSEIL
void lockAbseil(absl::Mutex& lock)
{
    lock.Lock();
}
void unlockAbseil(absl::Mutex& lock)
{
    lock.Unlock();
}
void lockAbseilShared(absl::Mutex& lock)
{
    lock.ReaderLock();
}
void unlockAbseilShared(absl::Mutex& lock)
{
    lock.ReaderUnlock();
}
#endif

#define LOCK_BENCHMARK(name, Lock, acquireLock, releaseLock)                                                 \
    BENCHMARK_TEMPLATE(acquireAndRelease, Lock, acquireLock, releaseLock)                                    \
        ->Name(name)                                                                                         \
        ->ThreadRange(1, 4)                                                                                  \
        ->UseRealTime()

LOCK_BENCHMARK("dalnim::CriticalSection", mt::CriticalSection, acquire, release);
LOCK_BENCHMARK("dalnim::SysMutex", mt::SysMutex, acquire, release);
LOCK_BENCHMARK("std::mutex", std::mutex, lockIt, unlockIt);
LOCK_BENCHMARK("std::recursive_mutex", std::recursive_mutex, lockIt, unlockIt);
#ifdef DALNIM_BENCH_POCO
LOCK_BENCHMARK("Poco::FastMutex", Poco::FastMutex, lockIt, unlockIt);
#endif
LOCK_BENCHMARK("dalnim::ReaderWriterLock/read", mt::ReaderWriterLock, acquireForRead, release);
LOCK_BENCHMARK("dalnim::ReaderWriterLock/write", mt::ReaderWriterLock, acquireForWrite, release);
LOCK_BENCHMARK("std::shared_mutex/read", std::shared_mutex, lockShared, unlockShared);
LOCK_BENCHMARK("std::shared_mutex/write", std::shared_mutex, lockIt, unlockIt);
#ifdef DALNIM_BENCH_ABSEIL
LOCK_BENCHMARK("absl::Mutex", absl::Mutex, lockAbseil, unlockAbseil);
LOCK_BENCHMARK("absl::Mutex/read", absl::Mutex, lockAbseilShared, unlockAbseilShared);
#endif

}
