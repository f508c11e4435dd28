#ifndef NIMHOST_LOGWATCH_HPP
#define NIMHOST_LOGWATCH_HPP

#include "Configuration.hpp"

#include <dalnim/io/Properties.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace nimhost {

/**
 * Returns the log to its file: after a failed rotation, the log is written to standard error until it is
 * configured again. Not thread-safe.
 */
class LogWatch
{
public:
    /** Sets the configuration to be restored. */
    void setConfiguration(const Configuration& configuration);
    /**
     * Configures the log again if it is not written to its file, at most every few seconds. If the file
     * cannot be opened, the log remains on standard error.
     */
    void check();
    /**
     * Reopens the log file if it was deleted, so that no records are lost with it. If that fails, logs to
     * standard error; check() later restores the file.
     */
    void reopenIfRemoved();

private:
    typedef std::chrono::steady_clock Clock;

    /** Settings of the configuration in effect; null if its log is a stream. */
    std::unique_ptr<const com::kor::dal::nim::io::Properties> settings;
    bool hasLostFile = false;
    /** When the loss was detected, in the format of a log record. */
    std::string since;
    Clock::time_point nextTry;
};

}

#endif
