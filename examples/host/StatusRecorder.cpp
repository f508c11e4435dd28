#include "StatusRecorder.hpp"

#include <dalnim/nim.hpp>

#include <exception>

namespace nimhost {

namespace {

constexpr double PAGE_INTERVAL = 1;

}

StatusRecorder::StatusRecorder(const std::string& path, const Counters& hostCounters,
                               const RotationTraces& rotationTraces)
    : counters(hostCounters), traces(rotationTraces), page(path), next(PAGE_INTERVAL)
{
    write(0, true);
}

void StatusRecorder::update(double seconds)
{
    history.add(sample(seconds));
    if (seconds < next) {
        return;
    }
    next = seconds + PAGE_INTERVAL;
    try {
        write(seconds, true);
        failed = false;
    } catch (const std::exception& exc) {
        if (!failed) {
            NIM_LOG_TRAPPED(Severity_WARNING, exc, "the status page is out of date");
        }
        failed = true;
    }
}

void StatusRecorder::end(double seconds)
{
    history.end(sample(seconds));
    write(seconds, false);
}

Sample StatusRecorder::sample(double seconds) const
{
    return {seconds, counters.recordsWritten, traces.rotations(), counters.requestsWaiting};
}

void StatusRecorder::write(double seconds, bool running) const
{
    page.write(Summary(seconds, counters, traces.rotations()), history, running);
}

}
