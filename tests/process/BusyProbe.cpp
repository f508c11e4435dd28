/**
 * A process in which other threads are in the middle of everything that the library has a lock for: they
 * log, load and unload, run tasks, wait for tasks, and use the allocator. In it
 *
 *     fork PATH TIMES PLUGIN   children are forked so many times, each of which logs to the file and exits
 *     exit PATH PLUGIN         the program ends
 *
 * PATH is that of the log file, PLUGIN of something to be loaded.
 */

#include "Life.hpp"
#include "Patience.hpp"

#include <dalnim/log/Control.hpp>
#include <dalnim/log/Module.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace processtest;
namespace log = com::kor::dal::nim::log;
namespace mt = com::kor::dal::nim::mt;
namespace sys = com::kor::dal::nim::sys;

// That of the address sanitizer leaves its locks to the child as they are.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool IS_ALLOCATOR_FIT_TO_FORK = false;
#else
constexpr bool IS_ALLOCATOR_FIT_TO_FORK = true;
#endif

// Each load costs the thread sanitizer address space, of which a fork needs as much again.
#if defined(__SANITIZE_THREAD__)
constexpr std::chrono::microseconds PAUSE(1000);
#else
constexpr std::chrono::microseconds PAUSE(20);
#endif

/** Sets its flag when run. */
class Work : public mt::Runnable
{
public:
    void run() override
    {
        const std::vector<int> memory(100);
        hasRun = true;
    }
    std::atomic<bool> hasRun{false};
};

class Talk : public mt::Runnable
{
public:
    void run() override
    {
        NIM_LOG(Severity_WARNING) << "a task";
    }
};

/** Ended with the process, while its workers are still at work; in a forked child it has none. */
mt::ThreadPool pool("busy", 2, 0, 0, 0, 0, 10);

void runTask()
{
    Work work;
    mt::Task task(work);
    pool.add(task);
    // A waiter acquires locks. A wait without a time-out could wait for a pool that has ended.
    while (!task.waitForCompletion(1000) && task.status() != mt::Task::TSF_FINISHED) {
    }
}

int valueIn(const char* plugin)
{
    return *static_cast<const int*>(sys::DynLibrary::load(plugin)->symbol("dyn_other_value")->data());
}

/** What each thread does all the time. Never destroyed: the threads outlive main(). */
struct Busy
{
    explicit Busy(const char* pluginPath) : plugin(pluginPath) {}

    template <class Action>
    void start(Action action)
    {
        const int ready = ++threads;
        std::thread([this, action] {
            action();
            for (++started;; ++rounds) {
                action();
                // So that the children get a turn.
                std::this_thread::sleep_for(PAUSE);
            }
        }).detach();
        while (started != ready) {
            std::this_thread::yield();
        }
    }

    void startWithMemory()
    {
        start([this] { expect(valueIn(plugin) == 5); });
        start([] { delete[] new char[static_cast<std::size_t>(1 + rand() % 5000)]; });
    }
    /** Those which use no memory once they are under way. */
    void startWithoutMemory()
    {
        start([] { NIM_LOG(Severity_WARNING) << "meanwhile"; });
        start([] { NIM_LOG(Severity_WARNING) << "meanwhile"; });
        start([] { nim::type::Context::allocateKey(1); });
    }

    const char* const plugin;
    int threads = 0;
    std::atomic<int> started{0};
    std::atomic<long> rounds{0};
};

/** Says so when the program ends by itself, and its child's child. */
struct Last
{
    ~Last()
    {
        NIM_LOG(Severity_WARNING) << text;
    }
    std::string text = "the program ends";
};

Last last;

/** What a child does; its exit runs the destructors of all static objects. */
[[noreturn]] void liveAsChild(int number, const char* plugin)
{
    alarm(PATIENCE_S);
    last.text = "child " + std::to_string(number) + " ends";
    NIM_LOG(Severity_WARNING) << "child " << number;
    const std::vector<std::string> memory(100, std::string(100, 'x'));
    expect(valueIn(plugin) == 5);
    nim::type::Context::allocateKey(1);
    Work work;
    mt::Task task(work);
    expect(!task.waitForCompletion(1));
    task.run();
    task.interrupt(1);
    expect(task.status() == mt::Task::TSF_FINISHED);
    std::exit(0);
}

int forkAll(int times, const char* plugin)
{
    for (int i = 0; i < times; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            liveAsChild(i, plugin);
        }
        int status = -1;
        if (child == -1 || waitpid(child, &status, 0) != child) {
            std::cout << "child " << i << ": " << std::strerror(errno) << std::endl;
            return 1;
        }
        if (status != 0) {
            std::cout << "child " << i << " ended with " << status << std::endl;
            return 1;
        }
    }
    return 0;
}

}

int main(int argc, char** argv)
{
    alarm(5 * PATIENCE_S);
    const std::string what = argc > 3 ? argv[1] : "";
    const char* const plugin = argv[argc - 1];
    com_kor_dal_nim_log_control.setPath(argv[2]);
    Busy& busy = *new Busy(plugin);
    if (what == "fork") {
        busy.startWithoutMemory();
        if (IS_ALLOCATOR_FIT_TO_FORK) {
            busy.startWithMemory();
            busy.start(runTask);
        }
        // The threads would be in the middle of a pool that goes.
        _exit(forkAll(std::stoi(argv[3]), plugin));
    }
    busy.startWithoutMemory();
    busy.startWithMemory();
    while (busy.rounds < 100) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 10; ++i) {
        pool.add(new mt::Task(new Talk, true), true);
    }
    return 0;
}
