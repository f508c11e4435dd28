#ifndef TESTS_LOG_THREADS_HPP
#define TESTS_LOG_THREADS_HPP

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace logtest {

/** A thread whose statement the test wants to see block. */
class LoggingThread
{
public:
    template <class Body>
    explicit LoggingThread(Body body)
        : thread([this, body = std::move(body)] {
              number = static_cast<int>(::syscall(SYS_gettid));
              body();
          })
    {
    }

    /** Waits until the thread sleeps in a system call. */
    void awaitBlocked() const
    {
        while (number == 0 || state() != 'S') {
            std::this_thread::yield();
        }
    }

    std::thread::native_handle_type handle()
    {
        return thread.native_handle();
    }

    void join()
    {
        thread.join();
    }

private:
    char state() const
    {
        std::ifstream status("/proc/self/task/" + std::to_string(number) + "/stat");
        std::string text;
        std::getline(status, text);
        const std::size_t name = text.rfind(") ");
        return name == std::string::npos ? '?' : text[name + 2];
    }

    std::atomic<int> number{0};
    std::thread thread;
};

}

#endif
