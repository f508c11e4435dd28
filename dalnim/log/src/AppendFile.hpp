#ifndef DALNIM_LOG_SRC_APPENDFILE_HPP
#define DALNIM_LOG_SRC_APPENDFILE_HPP

#include <dalnim/String.hpp>

#include <fstream>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * Opens a closed file stream for output at the end of a file, which is created when it is missing
 * and never truncated. The descriptor is not inherited by the programs that the process starts.
 * The stream has no buffer: what is inserted is with the kernel, or refused, when the call returns.
 * On failure the stream's failbit is set and `errno` tells the cause.
 */
void openAppending(std::ofstream& stream, const String& path);

/**
 * Writes a text to such a stream by one call of the kernel, as if it were inserted and flushed. False
 * when the stream is not good, or not any more.
 */
bool writeThrough(std::ofstream& stream, std::string_view text);

}

#endif
