#ifndef TESTS_QV_THREADS_HPP
#define TESTS_QV_THREADS_HPP

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <sys/types.h>
#include <unistd.h>

namespace qvtest {

/** A gate that remains open after it was opened. */
class Gate
{
public:
    void open()
    {
        const std::lock_guard<std::mutex> guard(_mutex);
        _isOpen = true;
        _changed.notify_all();
    }
    void pass()
    {
        std::unique_lock<std::mutex> guard(_mutex);
        _changed.wait(guard, [this] { return _isOpen; });
    }
    /** Returns false if the gate is still closed after that time. */
    bool passWithin(std::chrono::seconds time)
    {
        std::unique_lock<std::mutex> guard(_mutex);
        return _changed.wait_for(guard, time, [this] { return _isOpen; });
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _isOpen = false;
};

/** A thread that makes one call. Other threads can observe whether the call blocks or has returned. */
class Caller
{
public:
    template <class Call>
    explicit Caller(Call call)
    {
        std::promise<pid_t> promise;
        std::future<pid_t> tid = promise.get_future();
        _thread = std::thread([this, call, started = std::move(promise)]() mutable {
            started.set_value(gettid());
            call();
            _hasEnded = true;
        });
        _tid = tid.get();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
    ~Caller()
    {
        join();
    }

    pid_t tid() const
    {
        return _tid;
    }

    bool hasEnded() const
    {
        return _hasEnded;
    }

    /**
     * Waits until the thread sleeps in the kernel, and remains asleep as in the wait that the test is about.
     * Returns false if the call has returned instead.
     */
    bool awaitAsleep() const
    {
        constexpr int ENOUGH = 20;
        std::string last;
        for (int same = 0; same < ENOUGH;) {
            if (_hasEnded) {
                return false;
            }
            const std::string now = sleep();
            same = !now.empty() && now == last ? same + 1 : 0;
            last = now;
            std::this_thread::yield();
        }
        return true;
    }

    void join()
    {
        if (_thread.joinable()) {
            _thread.join();
        }
    }

private:
    /** Returns a string that identifies the present sleep of the thread, or "" if it does not sleep. */
    std::string sleep() const
    {
        std::ifstream status("/proc/self/task/" + std::to_string(_tid) + "/status");
        bool isAsleep = false;
        for (std::string line; std::getline(status, line);) {
            isAsleep = isAsleep || line == "State:\tS (sleeping)";
            if (isAsleep && line.rfind("voluntary_ctxt_switches:", 0) == 0) {
                return line;
            }
        }
        return std::string();
    }

    std::atomic<bool> _hasEnded{false};
    std::thread _thread;
    pid_t _tid = 0;
};

}

#endif
