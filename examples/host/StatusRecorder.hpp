#ifndef NIMHOST_STATUSRECORDER_HPP
#define NIMHOST_STATUSRECORDER_HPP

#include "Counters.hpp"
#include "History.hpp"
#include "RotationTraces.hpp"
#include "StatusPage.hpp"

#include <string>

namespace nimhost {

/** Takes the samples of a run and keeps the page that shows it up to date. One thread uses it. */
class StatusRecorder
{
public:
    /** Writes the first page. Throws std::runtime_error when that cannot be done. */
    StatusRecorder(const std::string& path, const Counters& counters, const RotationTraces& traces);

    /** Looks at the run as it is now; once a second it writes the page. A page that fails is logged once. */
    void look(double seconds);
    /** Writes the last page. Throws std::runtime_error when that cannot be done. */
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
