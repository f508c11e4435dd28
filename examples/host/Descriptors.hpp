#ifndef NIMHOST_DESCRIPTORS_HPP
#define NIMHOST_DESCRIPTORS_HPP

#include <cstddef>

namespace nimhost {

/**
 * Opens /dev/null for standard input, output and error if they are closed. Otherwise, the next file to be
 * opened (the log, for example) would get their descriptor, and what is written to them.
 * @throws std::system_error if /dev/null cannot be opened
 */
void openMissingDescriptors();

/**
 * Writes a text to standard error if it is writable, otherwise drops it. Never blocks, so that a last message
 * cannot delay the end of the process.
 */
void writeLastWords(const char* text, std::size_t length) noexcept;

}

#endif
