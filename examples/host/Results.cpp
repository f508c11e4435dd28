#include "Results.hpp"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nimhost {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

constexpr int POLL_MILLISECONDS = 100;

/**
 * A pipe that poll() reports as writable has space for at least PIPE_BUF bytes; writes to files never block.
 */
std::size_t maxWriteSize(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? SSIZE_MAX : PIPE_BUF;
}

}

Results::Results(int descriptor, std::atomic<std::uint64_t>& notWrittenCounter)
    : output(descriptor), maxWrite(maxWriteSize(descriptor)), notWritten(notWrittenCounter)
{
}

void Results::begin()
{
    const std::lock_guard<std::mutex> guard(lock);
    write("<results>\n");
}

Results::Position Results::reserve(const String& start)
{
    const std::lock_guard<std::mutex> guard(lock);
    unfilled.emplace(reserved, start);
    return reserved++;
}

void Results::fill(Position position, const String& rest)
{
    const std::lock_guard<std::mutex> guard(lock);
    fillLocked(position, rest);
}

void Results::drop(Position position)
{
    fill(position, " status=\"dropped\"/>");
}

void Results::dropUnfilled()
{
    const std::lock_guard<std::mutex> guard(lock);
    while (!unfilled.empty()) {
        fillLocked(unfilled.begin()->first, " status=\"dropped\"/>");
    }
}

void Results::fillLocked(Position position, const String& rest)
{
    const auto start = unfilled.find(position);
    if (start == unfilled.end()) {
        return;
    }
    // Not erased before the other entry has been allocated.
    completed.emplace(position, "  " + start->second + rest + "\n");
    unfilled.erase(start);
    for (auto next = completed.find(written); next != completed.end(); next = completed.find(written)) {
        write(next->second);
        if (error != 0) {
            ++notWritten;
        }
        completed.erase(next);
        ++written;
    }
}

void Results::end()
{
    const std::lock_guard<std::mutex> guard(lock);
    write("</results>\n");
}

void Results::disableWaiting()
{
    isWaitingDisabled = true;
}

void Results::write(const String& text)
{
    std::size_t done = 0;
    while (error == 0 && done < text.size() && waitUntilWritable()) {
        const ssize_t count = ::write(output, text.data() + done, std::min(text.size() - done, maxWrite));
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR && errno != EAGAIN) {
            error = errno;
        }
    }
}

/** Returns false if the output is not writable and waiting was disabled. */
bool Results::waitUntilWritable()
{
    pollfd waited = {output, POLLOUT, 0};
    while (poll(&waited, 1, POLL_MILLISECONDS) <= 0) {
        if (isWaitingDisabled) {
            error = ETIMEDOUT;
            return false;
        }
    }
    return true;
}

String escaped(const String& text)
{
    String result;
    for (const char c : text) {
        switch (c) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            if (static_cast<unsigned char>(c) < ' ' && c != '\n' && c != '\t') {
                result += "&#" + std::to_string(static_cast<unsigned char>(c)) + ";";
            } else {
                result += c;
            }
        }
    }
    return result;
}

}
