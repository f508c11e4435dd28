#ifndef NIMHOST_LOGSETTINGS_HPP
#define NIMHOST_LOGSETTINGS_HPP

#include <dalnim/io/Properties.hpp>

#include <string>

namespace nimhost {

/** Log settings of a configuration. */
namespace LogSettings {

/** How the log file may be opened. */
enum Opening {
    /** Opening a FIFO waits for its reader. */
    MAY_BLOCK,
    /** A FIFO without a reader is rejected, so that the run is not blocked. */
    NON_BLOCKING
};

/** Returns the full key of a tag of log::Control. */
std::string key(const char* tag);

/** Returns the path of the log that the settings choose, or an empty string for a stream. */
std::string chosenPath(const com::kor::dal::nim::io::Properties& properties);

/**
 * Applies all log settings, or none of them. Reopens the log file if the path does not change, since the file
 * may have been renamed. The file is open on return, so that no log statement fails because it cannot be
 * opened. If standard error is connected to the system journal, the lines of the log on it have their
 * priority, unless the settings contain "priorityPrefix".
 * @param properties the settings
 * @param file       the path of the configuration, for messages
 * @param opening    whether opening the log file may block
 * @throws ConfigurationError with each invalid key, its value and the allowed values. The log then still uses
 * its old file, or the file that now has the same path
 */
void apply(const com::kor::dal::nim::io::Properties& properties, const std::string& file, Opening opening);

}

}

#endif
