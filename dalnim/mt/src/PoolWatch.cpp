#include <dalnim/dalbase.hpp>

#include <dalnim/mt/src/PoolWatch.hpp>

#include <algorithm>
#include <utility>

namespace com::kor::dal::nim::mt {

namespace {

constexpr UInt64_t NANOSECONDS_PER_MILLISECOND = 1000000;

String milliseconds(UInt64_t nanoseconds)
{
    return std::to_string(nanoseconds / NANOSECONDS_PER_MILLISECOND) + " ms";
}

/** Returns the name and the ID of a task. */
String labelOf(const PoolFigures::Running& task)
{
    return "'" + String(task.name) + "' (" + std::to_string(task.task) + ")";
}

}

PoolWatch::PoolWatch(qv::Reference<PoolQueue> queue, String name)
    : _queue(std::move(queue)), _figures(*_queue->figures()), _name("'" + std::move(name) + "'"),
      _tasks(_figures.workers())
{
}

void PoolWatch::check(const WatchLimits& limits, UInt64_t now, WatchFindings& findings)
{
    for (unsigned int worker = 0; worker < _figures.workers(); ++worker) {
        checkTask(worker, limits.task, now, findings);
    }
    checkQueue(limits.queue, now, findings);
}

void PoolWatch::checkTask(unsigned int worker, UInt64_t limit, UInt64_t now, WatchFindings& findings)
{
    const PoolFigures::Running running = _figures.running(worker);
    Logged& logged = _tasks[worker];
    if (logged.number != 0 && (running.task == 0 || running.number != logged.number)) {
        findings.push_back({"Task " + logged.label + " of pool " + _name + " has ended after at most "
                                + milliseconds(now - logged.begun),
                            {}});
        logged.number = 0;
    }
    if (limit == 0 || running.task == 0 || running.nanoseconds < limit || logged.number == running.number) {
        return;
    }
    String label = labelOf(running);
    findings.push_back({"Task " + label + " of pool " + _name + " has been running for "
                            + milliseconds(running.nanoseconds) + " on thread "
                            + std::to_string(running.thread),
                        {{running.thread, String()}}});
    logged.number = running.number;
    logged.begun = now - std::min(now, running.nanoseconds);
    logged.label.swap(label);
}

void PoolWatch::checkQueue(UInt64_t limit, UInt64_t now, WatchFindings& findings)
{
    PoolStatistics statistics;
    _figures.read(statistics);
    const UInt64_t begun = statistics.submitted - statistics.discarded - statistics.pending;
    if (_movedAt == 0 || begun != _begun || statistics.pending == 0) {
        if (_isQueueLogged) {
            findings.push_back(
                {"Queue of pool " + _name + " moves again after at most " + milliseconds(now - _movedAt),
                 {}});
        }
        _isQueueLogged = false;
        _begun = begun;
        _movedAt = now;
        return;
    }
    if (limit == 0 || _isQueueLogged || now - _movedAt < limit) {
        return;
    }
    findings.push_back({"Queue of pool " + _name + " has not moved for " + milliseconds(now - _movedAt) + ": "
                            + std::to_string(statistics.pending) + " tasks wait, "
                            + std::to_string(statistics.running) + " run",
                        runningThreads()});
    _isQueueLogged = true;
}

/** Returns the threads of the running tasks. */
std::vector<WatchFinding::Thread> PoolWatch::runningThreads() const
{
    std::vector<WatchFinding::Thread> threads;
    for (unsigned int worker = 0; worker < _figures.workers(); ++worker) {
        const PoolFigures::Running running = _figures.running(worker);
        if (running.task != 0) {
            threads.push_back({running.thread, "task " + labelOf(running) + " has been running for "
                                                   + milliseconds(running.nanoseconds) + " on thread "
                                                   + std::to_string(running.thread)});
        }
    }
    return threads;
}

bool PoolWatch::isOver() const
{
    const bool isLogged = _isQueueLogged || std::any_of(_tasks.begin(), _tasks.end(), [](const Logged& task) {
                              return task.number != 0;
                          });
    PoolStatistics statistics;
    _figures.read(statistics);
    return !isLogged && statistics.pending == 0 && statistics.running == 0 && _queue->isClosed() != 0;
}

}
