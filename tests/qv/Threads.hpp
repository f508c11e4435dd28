#ifndef TESTS_QV_THREADS_HPP
#define TESTS_QV_THREADS_HPP

#include <atomic>
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

/** A gate that stays open once it was opened. */
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

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _isOpen = false;
};

/** A thread that makes one call, of which others can see that it waits or has ended. */
class Caller
{
public:
    template <class Call>
    explicit Caller(Call call)
        : _thread([this, call]() mutable {
              _started.set_value(gettid());
              call();
              _hasEnded = true;
          }),
          _tid(_started.get_future().get())
    {
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
    ~Caller()
    {
        join();
    }

    pid_t tid() const { return _tid; }

    bool hasEnded() const { return _hasEnded; }

    /** Returns when the thread sleeps in the kernel; false when the call has ended instead. */
    bool awaitAsleep() const
    {
        while (!_hasEnded) {
            if (state() == 'S') {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

    void join()
    {
        if (_thread.joinable()) {
            _thread.join();
        }
    }

private:
    char state() const
    {
        std::ifstream stat("/proc/self/task/" + std::to_string(_tid) + "/stat");
        std::string line;
        std::getline(stat, line);
        const std::size_t name = line.rfind(") ");
        return name == std::string::npos ? '?' : line[name + 2];
    }

    std::promise<pid_t> _started;
    std::atomic<bool> _hasEnded{false};
    std::thread _thread;
    pid_t _tid;
};

}

#endif
