#ifndef NIMHOST_MONITOR_HPP
#define NIMHOST_MONITOR_HPP

#include "Counters.hpp"

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Task.hpp>

namespace nimhost {

/** Logs the progress of the host once per second until the end of the run. Runs on a detached thread. */
class Monitor : public com::kor::dal::nim::mt::Runnable
{
public:
    Monitor(const Counters& counters, const Stop& stop);

    void run() override;

private:
    const Counters& counters;
    const Stop& stop;
};

}

#endif
