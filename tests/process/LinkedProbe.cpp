/**
 * A program that is linked with the library and uses it from its own static objects. Each pair of
 * arguments is a step:
 *
 *     dlopen PATH, dlclose PATH
 *     load PATH, drop PATH    by the library's own loader
 *     say PATH                logs by a loaded plug-in, under its module
 *     log TEXT                logs under every module that this program can name
 *     see-end PATH            a thread uses a loaded plug-in, which is dropped before the thread ends
 *     while-logging PATH      loads and drops a plug-in many times, while other threads log
 */

#include "Handles.hpp"
#include "Life.hpp"
#include "Patience.hpp"

#include <dalnim/log/Control.hpp>
#include <dalnim/log/Module.hpp>

#include <atomic>
#include <future>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

namespace log = com::kor::dal::nim::log;
namespace sys = com::kor::dal::nim::sys;

log::Module own_module("process.program", log::GET_NIM_LOG_LOGGER_VAR());

struct StaticUser
{
    StaticUser()
    {
        processtest::useLibrary("program starts");
    }
    StaticUser(const StaticUser&) = delete;
    StaticUser& operator=(const StaticUser&) = delete;
    ~StaticUser()
    {
        processtest::useLibrary("program ends");
    }
};

const StaticUser static_user;

/** Logs when its thread ends. The main thread's ends with the process. */
struct ThreadExitLogger
{
    ~ThreadExitLogger()
    {
        NIM_LOG(Severity_WARNING) << text;
    }
    const char* text = "";
};

thread_local ThreadExitLogger thread_exit_logger;

processtest::Handles handles;
std::map<std::string, sys::ConstDynLibraryRef> libraries;

template <class Function>
Function* find(const std::string& path, const char* name)
{
    return reinterpret_cast<Function*>(libraries.at(path)->symbol(name)->func());
}

void seeThreadEnd(const std::string& path)
{
    std::promise<void> used;
    std::promise<void> dropped;
    std::thread thread([&] {
        thread_exit_logger.text = "program sees a thread end";
        find<void()>(path, "process_see_thread_end")();
        used.set_value();
        dropped.get_future().wait();
    });
    used.get_future().wait();
    libraries.erase(path);
    dropped.set_value();
    thread.join();
}

/** Threads that log under modules of the program, until the end of the scope. */
class Loggers
{
public:
    Loggers()
    {
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([this] {
                while (!isOver) {
                    NIM_LOG(Severity_DEBUG) << "refused";
                    NIM_LOG_TO(own_module, Severity_WARNING) << "concurrent";
                    ++rounds;
                }
            });
        }
    }
    Loggers(const Loggers&) = delete;
    Loggers& operator=(const Loggers&) = delete;
    ~Loggers()
    {
        isOver = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    /** Blocks until they have logged `more` times. */
    void await(long more) const
    {
        for (const long enough = rounds + more; rounds < enough;) {
            std::this_thread::yield();
        }
    }

private:
    static constexpr int THREADS = 3;

    std::atomic<bool> isOver{false};
    std::atomic<long> rounds{0};
    std::vector<std::thread> threads;
};

void loadWhileLogging(const std::string& path)
{
    constexpr int TIMES = 20;
    const Loggers loggers;
    for (int i = 0; i < TIMES; ++i) {
        loggers.await(3);
        const sys::ConstDynLibraryRef library = sys::DynLibrary::load(path);
        // Invalidates the cache of every module, also that of the plug-in.
        com_kor_dal_nim_log_control.setModuleFilter("process.*", i % 2 == 0);
        loggers.await(3);
    }
}

bool step(const std::string& what, const std::string& which)
{
    if (what == "dlopen") {
        handles.open(which);
    } else if (what == "dlclose") {
        handles.close(which);
    } else if (what == "load") {
        libraries[which] = sys::DynLibrary::load(which);
    } else if (what == "drop") {
        libraries.erase(which);
    } else if (what == "say") {
        find<void(const char*)>(which, "process_say")("spoken");
    } else if (what == "log") {
        NIM_LOG_TO(own_module, Severity_WARNING) << which << " by the program's";
        NIM_LOG(Severity_WARNING) << which << " by the global one";
        NIM_LOG_TO(log::INTERNAL_LOG_MODULE, Severity_WARNING) << which << " by the library's";
        NIM_LOG_TO(log::Module::getInstance("process.made", log::GET_NIM_LOG_LOGGER_VAR()), Severity_WARNING)
            << which << " by a new one";
    } else if (what == "see-end") {
        seeThreadEnd(which);
    } else if (what == "while-logging") {
        loadWhileLogging(which);
    } else {
        return false;
    }
    return true;
}

}

int main(int argc, char** argv)
{
    alarm(processtest::PATIENCE_S);
    thread_exit_logger.text = "program sees the main thread end";
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!step(argv[i], argv[i + 1])) {
            return 2;
        }
    }
    return 0;
}
