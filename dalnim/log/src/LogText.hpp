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

/**
 * The length of a record without its trailing white space. A record without a text is its prefix, and
 * keeps the blank that ends it.
 */
inline std::size_t trimmedLength(std::string_view msg)
{
    std::size_t length = msg.size();
    while (length > 0 && std::isspace(static_cast<unsigned char>(msg[length - 1]))) {
        --length;
    }
    const std::size_t end = length + 1;
    if (end >= TERMINATOR_LENGTH
        && msg.compare(end - TERMINATOR_LENGTH, TERMINATOR_LENGTH, TERMINATOR, TERMINATOR_LENGTH) == 0
        && msg.find(TERMINATOR) == end - TERMINATOR_LENGTH) {
        return end;
    }
    return length;
}

/** Takes the trailing white space off a line and puts a newline in its place. */
inline void endLine(LineText& line)
{
    line.cut(trimmedLength(line.view()));
    line.append('\n');
}

}

#endif
