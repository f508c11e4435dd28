#ifndef DALNIM_LOG_SRC_LOGTEXT_HPP
#define DALNIM_LOG_SRC_LOGTEXT_HPP

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/LineText.hpp>

#include <cctype>
#include <string_view>

namespace com::kor::dal::nim::log {

/** What stands on standard error ahead of a record that its own stream would not take. */
constexpr char STREAM_COMPLAINT[] = "ERROR: Unable to write to log output stream.";

/** What getSeverityName() copies; fails as it does. */
std::string_view severityText(Severity severity);

/** The length of TERMINATOR, without a look at it. */
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

/** Replaces the trailing white space of a line, as trimmedLength() has it, by a newline. */
inline void endLine(LineText& line, std::size_t prefixLength)
{
    line.cut(trimmedLength(line.view(), prefixLength));
    line.append('\n');
}

}

#endif
