#include <dalnim/nim.hpp>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <sstream>

using namespace com::kor::dal::nim;

namespace {

log::Module& com_kor_dal_nim_log_module = log::Module::getInstance("shop", log::GET_NIM_LOG_LOGGER_VAR());

/** A delivery to a street that may not exist. */
class Delivery : public mt::Task
{
public:
    explicit Delivery(const char* address) : Task("delivery"), street(address) {}

    void run() override
    {
        const sys::StackTrack track("run()", "Delivery", "shop", 26);
        if (street.empty()) {
            throw sys::system_error(EINVAL, "there is no street");
        }
    }

private:
    const String street;
};

/** Logs an exception that leaves a task. A pool discards it otherwise. */
void logException(const mt::Task* task, const std::exception* known, const std::exception_ptr&)
{
    const String name = task != nullptr ? task->name() : "a task";
    if (known != nullptr) {
        NIM_LOG_TRAPPED(Severity_ERROR, *known, name + " ended by an exception");
    } else {
        NIM_LOG(Severity_ERROR) << name << " ended by an exception of an unknown type";
    }
}

/** Sets the watchdog up. Call it before the pool gets its first task. */
void watch(mt::Watchdog& watchdog, mt::ThreadPool& pool)
{
    pool.setExceptionHandler(logException);
    pool.setKernelNames();
    watchdog.setTaskLimit(10000);
    watchdog.setQueueLimit(10000);
    watchdog.watch(pool);
}

/** Ends the pool within five seconds, and names what it leaves. Returns false if tasks still run. */
bool endWithin(mt::ThreadPool& pool)
{
    const mt::UnfinishedTasks left = pool.shutdownWithin(5000);
    for (const mt::RunningTask& task : left.running) {
        NIM_LOG(Severity_ERROR) << "the task " << task.name << " has been running for " << task.milliseconds
                                << " ms";
    }
    return left.running.empty();
}

void writeMetrics(const mt::ThreadPool& pool)
{
    io::MetricsText metrics;
    metrics.add(com_kor_dal_nim_log_control.getStatistics(), "default");
    metrics.add(pool.statistics(), pool.name());
    std::ostringstream text;
    metrics.write(text);
    std::istringstream lines(text.str());
    for (String line; std::getline(lines, line);) {
        if (line.rfind("dalnim_pool_", 0) == 0 && line.find("_tasks") != String::npos) {
            std::cerr << line << '\n';
        }
    }
}

}

int main()
{
    // Before the first thread: a report of each crash, and a report of all threads on SIGUSR2.
    sys::CrashReport::install();
    sys::ThreadReport::installSignal(SIGUSR2);
    // For the metrics: before the first record.
    log::Statistics::enable();

    com_kor_dal_nim_log_control.setOutputMask(log::Mask_SEVERITY | log::Mask_MODULENAME);
    mt::ThreadPool pool("orders", 2, 0, 0, 0, 0, 100);
    // The watchdog checks once per second, on a thread of the application.
    mt::Watchdog watchdog(1000);
    watch(watchdog, pool);
    mt::Thread watching(watchdog, true, "watchdog");
    watching.start();

    pool.add(new Delivery("High Street"), true);
    pool.add(new Delivery(""), true);

    const bool ended = endWithin(pool);
    writeMetrics(pool);
    if (!ended) {
        // What a running task uses must not be destroyed.
        std::_Exit(1);
    }
    watchdog.stop();
    watching.join();
}
