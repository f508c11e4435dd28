#ifndef NIMHOST_MONITOR_HPP
#define NIMHOST_MONITOR_HPP

#include "Counters.hpp"

#include <dalnim/mt/Runnable.hpp>
#include <dalnim/mt/Task.hpp>
#include <dalnim/mt/Watchdog.hpp>

namespace nimhost {

/**
 * Logs the progress of the host once per second until the end of the run, and what is stuck. Runs on a
 * detached thread.
 */
class Monitor : public com::kor::dal::nim::mt::Runnable
{
public:
    Monitor(const Counters& counters, const Stop& stop, com::kor::dal::nim::mt::Watchdog& watchdog);

    void run() override;

private:
    const Counters& counters;
    const Stop& stop;
    com::kor::dal::nim::mt::Watchdog& watchdog;
};

}

#endif
