#ifndef BENCHMARKS_MT_PLAINPOOL_HPP
#define BENCHMARKS_MT_PLAINPOOL_HPP

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

/** A simple handwritten pool. The destructor runs the pending tasks. */
class PlainPool
{
public:
    explicit PlainPool(unsigned int workerCount)
    {
        for (unsigned int i = 0; i < workerCount; ++i) {
            workers.emplace_back([this] { work(); });
        }
    }
    PlainPool(const PlainPool&) = delete;
    PlainPool& operator=(const PlainPool&) = delete;
    ~PlainPool()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            isOver = true;
        }
        changed.notify_all();
        for (std::thread& worker : workers) {
            worker.join();
        }
    }

    void add(std::function<void()> task)
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            tasks.push_back(std::move(task));
        }
        changed.notify_one();
    }

private:
    void work()
    {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return isOver || !tasks.empty(); });
            if (tasks.empty()) {
                return;
            }
            const std::function<void()> task = std::move(tasks.front());
            tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::function<void()>> tasks;
    bool isOver = false;
    std::vector<std::thread> workers;
};

#endif
