/**
 * A process whose other threads continuously use everything for which the library has a lock: they log, load
 * and unload, run tasks, wait for tasks, and use the allocator. During that
 *
 *     fork PATH TIMES PLUGIN   forks TIMES children, each of which logs to the file and exits
 *     exit PATH PLUGIN         ends the program
 *
 * PATH is the log file, PLUGIN a plug-in to load.
 */

#include "Life.hpp"
#include "Patience.hpp"

#include <dalnim/log/Control.hpp>
#include <dalnim/log/Module.hpp>

#include <support/Sanitizers.hpp>

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

// Each load uses address space of the thread sanitizer, and a fork needs the same amount again.
constexpr std::chrono::microseconds PAUSE(support::UNDER_THREAD_SANITIZER ? 1000 : 20);

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

class AsyncTarget : public mt::Runnable
{
public:
    void run() override
    {
        NIM_LOG(Severity_WARNING) << "a task";
    }
};

/** Destroyed when the process exits, while its workers run tasks. In a forked child it has no workers. */
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

/** Threads that repeat an action indefinitely. Never destroyed: the threads outlive main(). */
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
                // Leaves CPU time to the children.
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
    /** Starts the actions that allocate no memory after their first round. */
    void startWithoutMemory()
    {
        start([] { NIM_LOG(Severity_WARNING) << "concurrent"; });
        start([] { NIM_LOG(Severity_WARNING) << "concurrent"; });
        start([] { nim::type::Context::allocateKey(1); });
    }

    const char* const plugin;
    int threads = 0;
    std::atomic<int> started{0};
    std::atomic<long> rounds{0};
};

/** Logs when the process exits normally; a child changes the text. */
struct Last
{
    ~Last()
    {
        NIM_LOG(Severity_WARNING) << text;
    }
    std::string text = "the program ends";
};

Last last;

/** Runs a child, which exits normally: the destructors of all static objects run. */
[[noreturn]] void runChild(int number, const char* plugin)
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
            runChild(i, plugin);
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
        if (!support::UNDER_ADDRESS_SANITIZER) {
            busy.startWithMemory();
            busy.start(runTask);
        }
        // Without destructors, since the threads still use the pool.
        _exit(forkAll(std::stoi(argv[3]), plugin));
    }
    busy.startWithoutMemory();
    busy.startWithMemory();
    while (busy.rounds < 100) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 10; ++i) {
        pool.add(new mt::Task(new AsyncTarget, true), true);
    }
    return 0;
}
