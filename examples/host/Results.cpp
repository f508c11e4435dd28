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

constexpr int LOOK_MILLISECONDS = 100;

/** A pipe that poll() calls writable has room for PIPE_BUF bytes at least; a file never waits. */
std::size_t pieceSize(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? SSIZE_MAX : PIPE_BUF;
}

}

Results::Results(int descriptor, std::atomic<std::uint64_t>& lostResults)
    : output(descriptor), piece(pieceSize(descriptor)), lost(lostResults)
{
}

void Results::begin()
{
    const std::lock_guard<std::mutex> guard(lock);
    write("<results>\n");
}

Results::Place Results::reserve(const String& start)
{
    const std::lock_guard<std::mutex> guard(lock);
    open.emplace(reserved, start);
    return reserved++;
}

void Results::fill(Place place, const String& rest)
{
    const std::lock_guard<std::mutex> guard(lock);
    fillLocked(place, rest);
}

void Results::drop(Place place)
{
    fill(place, " status=\"dropped\"/>");
}

void Results::dropOpen()
{
    const std::lock_guard<std::mutex> guard(lock);
    while (!open.empty()) {
        fillLocked(open.begin()->first, " status=\"dropped\"/>");
    }
}

void Results::fillLocked(Place place, const String& rest)
{
    const auto start = open.find(place);
    if (start == open.end()) {
        return;
    }
    // Not erased before there is memory for the other entry.
    early.emplace(place, "  " + start->second + rest + "\n");
    open.erase(start);
    for (auto next = early.find(written); next != early.end(); next = early.find(written)) {
        write(next->second);
        if (error != 0) {
            ++lost;
        }
        early.erase(next);
        ++written;
    }
}

void Results::end()
{
    const std::lock_guard<std::mutex> guard(lock);
    write("</results>\n");
}

void Results::stopWaiting()
{
    impatient = true;
}

void Results::write(const String& text)
{
    std::size_t done = 0;
    while (error == 0 && done < text.size() && waitForRoom()) {
        const ssize_t count = ::write(output, text.data() + done, std::min(text.size() - done, piece));
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno != EINTR && errno != EAGAIN) {
            error = errno;
        }
    }
}

/** Returns false if there is no room and waiting was stopped. */
bool Results::waitForRoom()
{
    pollfd waited = {output, POLLOUT, 0};
    while (poll(&waited, 1, LOOK_MILLISECONDS) <= 0) {
        if (impatient) {
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
