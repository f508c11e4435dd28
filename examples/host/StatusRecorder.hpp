#ifndef NIMHOST_STATUSRECORDER_HPP
#define NIMHOST_STATUSRECORDER_HPP

#include "Counters.hpp"
#include "History.hpp"
#include "RotationTraces.hpp"
#include "StatusPage.hpp"

#include <string>

namespace nimhost {

/** Samples a run and keeps its status page up to date. Not thread-safe. */
class StatusRecorder
{
public:
    /**
     * Writes the first page.
     * @throws std::runtime_error if that fails
     */
    StatusRecorder(const std::string& path, const Counters& counters, const RotationTraces& traces);

    /**
     * Takes a sample, and writes the page once per second. Only the first of several failed writes is logged.
     */
    void update(double seconds);
    /**
     * Writes the last page.
     * @throws std::runtime_error if that fails
     */
    void end(double seconds);

private:
    Sample sample(double seconds) const;
    void write(double seconds, bool running) const;

    const Counters& counters;
    const RotationTraces& traces;
    const StatusPage page;
    History history;
    double next;
    bool failed = false;
};

}

#endif
