#ifndef DALNIM_LOG_SRC_LOGTEXT_HPP
#define DALNIM_LOG_SRC_LOGTEXT_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Common.hpp>

#include <cctype>
#include <cstring>

namespace com::kor::dal::nim::log {

/** What stands on standard error ahead of a record that its own stream would not take. */
constexpr char STREAM_COMPLAINT[] = "ERROR: Unable to write to log output stream.";

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
    const std::size_t terminatorLength = std::strlen(TERMINATOR);
    const std::size_t end = length + 1;
    if (end >= terminatorLength && msg.compare(end - terminatorLength, terminatorLength, TERMINATOR) == 0 &&
        msg.find(TERMINATOR) == end - terminatorLength) {
        return end;
    }
    return length;
}

}

#endif
