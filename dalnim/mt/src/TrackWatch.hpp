#ifndef DALNIM_MT_SRC_TRACKWATCH_HPP
#define DALNIM_MT_SRC_TRACKWATCH_HPP

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <dalnim/mt/src/WatchFinding.hpp>
#include <dalnim/sys/ThreadReport.hpp>

#include <map>

namespace com::kor::dal::nim::mt {

/**
 * What a Watchdog remembers of threads that stay in one track.
 *
 * Thread safety: only one thread at a time may call check().
 */
class TrackWatch
{
public:
    /**
     * Appends the threads that have been in one track for too long, except the calling one, and those that
     * no longer are, since the last call.
     * @param limit  in nanoseconds; 0 for none
     * @throws std::bad_alloc  if memory runs out. What is not in `findings` is found again
     */
    void check(const sys::ThreadReport& report, UInt64_t limit, WatchFindings& findings);

private:
    /** A thread that was logged. */
    struct Logged
    {
        /** The kernel's name of the thread. */
        String name;
        /** The innermost track. */
        String track;
        /** Time for which the thread was last seen to be in it, in milliseconds. */
        TimeMS_t sameForMs;
    };

    void checkLogged(const sys::ThreadReport& report, WatchFindings& findings);

    std::map<ThreadID_t, Logged> _threads;
};

}

#endif
