#ifndef DALNIM_LOG_SRC_LOGTEXT_HPP
#define DALNIM_LOG_SRC_LOGTEXT_HPP

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/LineBuffer.hpp>

#include <cctype>
#include <string_view>

namespace com::kor::dal::nim::log {

/** Precedes a record on standard error that its own output has rejected. */
constexpr char WRITE_ERROR_MESSAGE[] = "ERROR: Unable to write to log output stream.";

/** Returns what getSeverityName() copies; throws like it. */
std::string_view severityText(Severity severity);

/** Length of TERMINATOR. */
constexpr std::size_t TERMINATOR_LENGTH = 3;

/** Returns the length of `msg` without its trailing white space, but never less than that of its prefix. */
inline std::size_t trimmedLength(std::string_view msg, std::size_t prefixLength)
{
    std::size_t length = msg.size();
    while (length > prefixLength && std::isspace(static_cast<unsigned char>(msg[length - 1]))) {
        --length;
    }
    return length;
}

/** Replaces the trailing white space of a line, except in its prefix, by a newline. */
inline void terminateLine(LineBuffer& line, std::size_t prefixLength)
{
    line.truncate(trimmedLength(line.view(), prefixLength));
    line.append('\n');
}

}

#endif
