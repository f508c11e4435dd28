#ifndef DALNIM_MT_SRC_WATCHFINDING_HPP
#define DALNIM_MT_SRC_WATCHFINDING_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>

#include <vector>

namespace com::kor::dal::nim::mt {

/** The limits of a Watchdog, in nanoseconds; 0 disables a check. */
struct WatchLimits
{
    UInt64_t task = 0;
    UInt64_t queue = 0;
    UInt64_t track = 0;
};

/** A record that a Watchdog will log. */
struct WatchFinding
{
    /** A thread whose tracks the record will contain. */
    struct Thread
    {
        ThreadID_t id;
        /** A line in front of the tracks; empty for none. */
        String title;
    };

    String text;
    std::vector<Thread> threads;
};

/** The records of one check, in their order. */
typedef std::vector<WatchFinding> WatchFindings;

}

#endif
