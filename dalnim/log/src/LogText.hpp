#ifndef DALNIM_LOG_SRC_LOGTEXT_HPP
#define DALNIM_LOG_SRC_LOGTEXT_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>

#include <cctype>

namespace com::kor::dal::nim::log {

/** What stands on standard error ahead of a record that its own stream would not take. */
constexpr char STREAM_COMPLAINT[] = "ERROR: Unable to write to log output stream.";

/** The length of TERMINATOR, without a look at it. */
constexpr std::size_t TERMINATOR_LENGTH = 3;

/**
 * The length of a record without its trailing white space. A record without a text is its prefix, and
 * keeps the blank that ends it.
 */
inline std::size_t trimmedLength(const String& msg)
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

}

#endif
