#ifndef NIMHOST_LOGWATCH_HPP
#define NIMHOST_LOGWATCH_HPP

#include <chrono>
#include <cstddef>
#include <string>

namespace nimhost {

/**
 * Keeps the log in its file: after a rotation that failed the log is on standard error, and stays there until
 * its path is set again. One thread uses it.
 */
class LogWatch
{
public:
    /** The path that the log has from here on; empty for a stream. */
    void expect(const std::string& path);
    /** Sets the path again if the log has lost it, no more often than every few seconds. */
    void look();
    /** Opens the file again if it was removed, so that records do not go to one that nobody can read. */
    void reopenIfRemoved();
    /** Has the log on standard error since its file cannot be opened; look() tries to find the way back. */
    void useStandardError(const std::string& why);

private:
    typedef std::chrono::steady_clock Clock;

    std::string expected;
    bool lost = false;
    /** When the loss was noticed, as a record shows it. */
    std::string since;
    Clock::time_point nextTry;
};

}

#endif
