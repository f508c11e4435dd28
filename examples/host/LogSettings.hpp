#ifndef NIMHOST_LOGSETTINGS_HPP
#define NIMHOST_LOGSETTINGS_HPP

#include <dalnim/io/Properties.hpp>

#include <string>

namespace nimhost {

/** The log's part of a configuration: checked as a whole first, so that a bad one changes nothing. */
namespace LogSettings {

/** The whole key of a tag of log::Control. */
std::string key(const char* tag);

/** The path that these settings choose for the log; empty for a stream. */
std::string chosenPath(const com::kor::dal::nim::io::Properties& properties);

/**
 * Checks each setting of the log, makes the log's directory and tries to open the log's file, which creates
 * it.
 * @param file    the configuration, for messages
 * @param running refuses a file whose opening would wait, such as a FIFO that nobody reads
 * Throws ConfigurationError with the key, its value and what is allowed.
 */
void check(const com::kor::dal::nim::io::Properties& properties, const std::string& file, bool running);

/**
 * Configures the log. Called again, it replaces the module filter and the severity mask, which would
 * otherwise accumulate, and reopens the file, which may have been moved away. Throws ConfigurationError.
 */
void apply(const com::kor::dal::nim::io::Properties& properties, const std::string& file);

/** Reopens the log at its path, or at `path` if it has lost its own. Throws as the setters of the log do. */
void reopen(const std::string& path);

/** Returns why the log's file cannot be opened now, as an errno value, or 0. Creates it, and waits for
 * nothing. */
int openingError(const std::string& path);

}

}

#endif
