#ifndef NIMHOST_LOGSETTINGS_HPP
#define NIMHOST_LOGSETTINGS_HPP

#include <dalnim/io/Properties.hpp>

#include <string>

namespace nimhost {

/** The log's part of a configuration. */
namespace LogSettings {

/** How the file of a log may be opened. */
enum Opening {
    /** A FIFO that no process reads waits for its reader. */
    MAY_WAIT,
    /** Such a FIFO is refused, since a run must not be held up. */
    NEVER_WAITS
};

/** The whole key of a tag of log::Control. */
std::string key(const char* tag);

/** The path that these settings choose for the log; empty for a stream. */
std::string chosenPath(const com::kor::dal::nim::io::Properties& properties);

/**
 * Replaces all settings of the log by these, or none of them. A file that stays the log's is opened again by
 * its path, since it may have been moved away. The file is open when this returns, so no statement fails
 * because it cannot be opened.
 * @param file the configuration, for messages
 * Throws ConfigurationError, with each key that is bad, its value and what is allowed. The old file is still
 * in use then, or the one that is at its path now.
 */
void apply(const com::kor::dal::nim::io::Properties& properties, const std::string& file, Opening opening);

}

}

#endif
