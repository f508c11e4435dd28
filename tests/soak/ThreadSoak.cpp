// Creates and destroys threads, pools, contexts and queues for a number of seconds, and monitors the memory
// and the threads of the process. Ends with 1 if either grows.

#include <dalnim/mt/Queue.hpp>
#include <dalnim/mt/Thread.hpp>
#include <dalnim/mt/ThreadPool.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/CurrentContext.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <mt/Work.hpp>

// Freed memory that the sanitizer retains must not hide a leak.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options()
{
    return "quarantine_size_mb=8:thread_local_quarantine_size_kb=64";
}

namespace {

namespace nim = com::kor::dal::nim;
using mttest::Keys;
using mttest::OwnTask;
using mttest::Work;
using nim::mt::Queue;
using nim::mt::QueueElement;
using nim::mt::Task;
using nim::mt::Thread;
using nim::mt::ThreadPool;
typedef std::chrono::steady_clock Clock;

#ifdef DALNIM_SANITIZED
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

void require(bool holds, const char* what)
{
    if (!holds) {
        throw std::runtime_error(what);
    }
}

/** Waits for a condition that other threads fulfil soon. */
template <class Predicate>
void await(Predicate holds, const char* what)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(30);
    while (!holds()) {
        require(Clock::now() < end, what);
        std::this_thread::yield();
    }
}

/** Returns a number from /proc/self/status. */
long status(const std::string& name)
{
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(name + ":", 0) == 0) {
            return std::atol(line.c_str() + name.size() + 1);
        }
    }
    throw std::runtime_error("no " + name + " in /proc/self/status");
}

void startAndJoin(const Keys& keys)
{
    int seen = 0;
    Work work([&] { seen = Keys::find(keys.deep)->value; });
    Work failing([] { throw nim::sys::system_error(5, "disk gone"); });
    Task task(work);
    Thread clean(task);
    Thread failed(failing);
    for (int round = 0; round < 3; ++round) {
        clean.start();
        failed.start();
        require(clean.join() == nullptr, "a clean run has no exception");
        require(failed.join() != nullptr, "a failed run has an exception");
    }
    require(seen == 7, "a thread has a copy of its starter's context");
}

void startDetached(const Keys& keys)
{
    std::atomic<int> found{0};
    std::atomic<int> destroyed{0};
    std::vector<std::unique_ptr<Thread>> threads;
    for (int i = 0; i < 4; ++i) {
        auto* const work = new Work([&] { found += Keys::find(keys.shared) != nullptr; }, &destroyed);
        threads.emplace_back(Thread::start(work, false, true, nullptr));
    }
    for (const auto& thread : threads) {
        await([&] { return thread->status() == Task::TSF_FINISHED; }, "a detached thread finishes");
    }
    threads.clear();
    require(found == 4 && destroyed == 4, "detached threads run, and their targets go with them");
}

/**
 * Pools that are ended in each way while tasks are queued and running. Their tasks add tasks to another pool:
 * in their own pool, workers that meet its limit concurrently would all block there indefinitely.
 */
void endPools(int way)
{
    std::atomic<int> made{0};
    std::atomic<int> destroyed{0};
    ThreadPool other(nullptr, 2, 0, 0, 0, 0, 8);
    {
        ThreadPool pool(nullptr, 3, 0, 0, 0, 0, 8);
        for (int i = 0; i < 40; ++i) {
            auto task = std::make_unique<OwnTask>(
                [&] {
                    auto inner = std::make_unique<OwnTask>(nullptr, &destroyed);
                    ++made;
                    try {
                        if (other.add(inner.get(), true, false)) {
                            inner.release();
                        }
                    } catch (const std::logic_error&) {
                        // The pool has been shut down.
                    }
                },
                &destroyed);
            ++made;
            pool.add(task.get(), true);
            task.release();
        }
        if (way != 0) {
            pool.shutdown(way == 1);
        }
    }
    other.shutdown(way == 1);
    await([&] { return made == destroyed; }, "a pool accounts for each task");
}

void duplicateContexts(const Keys& keys)
{
    const nim::type::ContainerContextRef current = nim::type::ContainerContext::current();
    std::vector<nim::sys::internal::CurrentContextRef> copies;
    for (int i = 0; i < 50; ++i) {
        copies.emplace_back(new nim::sys::internal::CurrentContext(*current));
        require(!copies.back()->find(keys.left) && !!copies.back()->find(keys.deep), "a copy is one");
    }
    for (std::size_t i = 1; i < copies.size(); ++i) {
        *copies[i] = *copies[i - 1];
    }
}

class Item : public QueueElement
{
public:
    explicit Item(std::atomic<int>& destroyedItems) : destroyed(destroyedItems) {}
    ~Item() override
    {
        ++destroyed;
    }

private:
    std::atomic<int>& destroyed;
};

/** A queue that is shut down while threads use it, and while it contains elements. */
void endQueue()
{
    std::atomic<int> made{0};
    std::atomic<int> destroyed{0};
    {
        Queue queue(4);
        Work producing([&] {
            for (;;) {
                auto item = std::make_unique<Item>(destroyed);
                ++made;
                if (!queue.insert(item.get())) {
                    return;
                }
                item.release();
            }
        });
        Work consuming([&] {
            while (const auto element = std::unique_ptr<QueueElement>(queue.next())) {
            }
        });
        Thread threads[] = {Thread(producing), Thread(producing), Thread(consuming), Thread(consuming)};
        for (Thread& thread : threads) {
            thread.start();
        }
        await([&] { return destroyed > 100; }, "elements come through a queue");
        queue.shutdown();
        for (Thread& thread : threads) {
            thread.join();
        }
    }
    require(made == destroyed, "a queue accounts for each element");
}

void round(const Keys& keys, int number)
{
    startAndJoin(keys);
    startDetached(keys);
    endPools(number % 3);
    duplicateContexts(keys);
    endQueue();
}

/** The memory of the process, in KiB, sampled once a second. */
class Watch
{
public:
    explicit Watch(int seconds) : end(start + std::chrono::seconds(seconds)) {}

    bool isOver() const
    {
        return Clock::now() >= end;
    }

    /** Takes a sample if a second has passed since the last one. */
    void look(int rounds)
    {
        if (Clock::now() < start + std::chrono::seconds(samples.size() + 1)) {
            return;
        }
        samples.push_back(status("VmRSS"));
        if (samples.size() % 10 == 0) {
            std::printf("%5zu s %8ld KiB %3ld threads %8d rounds\n", samples.size(), samples.back(),
                        status("Threads"), rounds);
            std::fflush(stdout);
        }
    }

    /**
     * Returns true if the last third of the run used less than 1 MiB more than the second. Also under a
     * sanitizer, which retains a record of each thread: the memory is not checked there.
     */
    bool isFlat() const
    {
        constexpr std::size_t ENOUGH = 30;
        constexpr long TOLERANCE = 1024;
        if (IS_SANITIZED || samples.size() < ENOUGH) {
            std::puts("the memory is not checked");
            return true;
        }
        const auto third = static_cast<std::ptrdiff_t>(samples.size() / 3);
        const long second = *std::max_element(samples.begin() + third, samples.begin() + 2 * third);
        const long last = *std::max_element(samples.begin() + 2 * third, samples.end());
        std::printf("memory: %ld KiB at most in the second third, %ld KiB in the last\n", second, last);
        return last - second < TOLERANCE;
    }

private:
    const Clock::time_point start = Clock::now();
    const Clock::time_point end;
    std::vector<long> samples;
};

int soak(int seconds)
{
    // A sanitizer may start a thread of its own together with the first other thread.
    std::thread([] {}).join();
    const long threads = status("Threads");
    Watch watch(seconds);
    int rounds = 0;
    {
        const Keys keys;
        keys.insertAll(7);
        for (; !watch.isOver(); ++rounds) {
            round(keys, rounds);
            watch.look(rounds + 1);
        }
        keys.removeAll();
    }
    // Not equal: the kernel may still have counted the thread that was joined first.
    await([&] { return status("Threads") <= threads; }, "no thread is left");
    std::printf("%d rounds\n", rounds);
    return watch.isFlat() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}

int main(int argc, char** argv)
{
    const int seconds = argc == 2 ? std::atoi(argv[1]) : 0;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: %s SECONDS\n", argv[0]);
        return 2;
    }
    try {
        return soak(seconds);
    } catch (const std::exception& exc) {
        std::fprintf(stderr, "failed: %s\n", exc.what());
        return EXIT_FAILURE;
    }
}
