#ifndef DALNIM_TOOLS_NIMLOG_CHANGES_HPP
#define DALNIM_TOOLS_NIMLOG_CHANGES_HPP

#include <support/Descriptor.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace nimlog {

/** Waits for changes in the directories of files, or for SIGINT or SIGTERM. */
class Changes
{
public:
    /** Blocks the two signals; afterwards they only end wait(). */
    explicit Changes(const std::vector<std::string>& paths);

    /** Returns true if one of the signals has arrived. */
    bool isStopped();

    /** Returns when something may have changed, when a signal arrives, or after `limit` at the latest. */
    void wait(std::chrono::milliseconds limit);

private:
    nimtools::Descriptor signals;
    /** inotify descriptor; none if the system has no more of them: changes are then detected by polling. */
    nimtools::Descriptor notifications;
};

}

#endif
