#ifndef DALNIM_TOOLS_NIMLOG_CHANGES_HPP
#define DALNIM_TOOLS_NIMLOG_CHANGES_HPP

#include <support/Descriptor.hpp>

#include <chrono>
#include <string>

namespace nimlog {

/** Waits until something happens in the folder of a file, or until SIGINT or SIGTERM ends it all. */
class Changes
{
public:
    /** From here on the two signals do nothing but end the waiting. */
    explicit Changes(const std::string& path);

    /** Whether one of the signals has come. */
    bool isStopped();

    /** Returns when there may be something new, or at once when stopped; after `limit` at the latest. */
    void wait(std::chrono::milliseconds limit);

private:
    nimtools::Descriptor signals;
    /** None where the system has no more of them: then it is the clock alone. */
    nimtools::Descriptor notifications;
};

}

#endif
