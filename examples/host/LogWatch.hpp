#ifndef NIMHOST_LOGWATCH_HPP
#define NIMHOST_LOGWATCH_HPP

#include "Configuration.hpp"

#include <dalnim/io/Properties.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace nimhost {

/**
 * Keeps the log in its file: after a rotation that failed the log is on standard error, and stays there until
 * it is configured again. One thread uses it.
 */
class LogWatch
{
public:
    /** The configuration that is in effect from here on. */
    void expect(const Configuration& configuration);
    /**
     * Configures the log again if it has lost its file, no more often than every few seconds. It stays on
     * standard error until the file can be opened.
     */
    void look();
    /**
     * Opens the file again if it was removed, so that records do not go to one that cannot be found. The log
     * moves to standard error if that fails; look() finds the way back.
     */
    void reopenIfRemoved();

private:
    typedef std::chrono::steady_clock Clock;

    /** The configuration that is in effect; null if its log is a stream. */
    std::unique_ptr<const com::kor::dal::nim::io::Properties> settings;
    bool lost = false;
    /** When the loss was noticed, as a record shows it. */
    std::string since;
    Clock::time_point nextTry;
};

}

#endif
