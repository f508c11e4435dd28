#ifndef NIMHOST_DESCRIPTORS_HPP
#define NIMHOST_DESCRIPTORS_HPP

#include <cstddef>

namespace nimhost {

/**
 * Opens /dev/null for standard input, output and error if they are closed. Otherwise the next file that is
 * opened, such as the log, would receive what is written to them. Throws std::system_error.
 */
void openMissingDescriptors();

/**
 * Writes a text to standard error in one piece if that can take it now; drops it otherwise. Never waits, so
 * that the last words of a process cannot hold up its end.
 */
void writeLastWords(const char* text, std::size_t length) noexcept;

}

#endif
