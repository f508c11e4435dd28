#include "ServiceManager.hpp"

#include "Failure.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

/** Maximum length of a status. The service manager ignores messages that exceed 4096 bytes. */
constexpr std::size_t MAX_STATUS = 1000;

/** Returns the value of a variable, and removes it from the environment. */
std::string takeVariable(const char* name)
{
    // NOLINTBEGIN(concurrency-mt-unsafe): single-threaded
    const char* const value = std::getenv(name);
    const std::string text = value != nullptr ? value : "";
    unsetenv(name);
    // NOLINTEND(concurrency-mt-unsafe)
    return text;
}

/** Returns a positive number, or 0 if the text is not one. */
std::int64_t parsePositive(std::string_view text)
{
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number > 0 ? number : 0;
}

/** Returns the assignment of a status: a single line of limited length that does not end within a character.
 */
std::string statusLine(std::string status)
{
    std::replace(status.begin(), status.end(), '\n', ' ');
    if (status.size() > MAX_STATUS) {
        std::size_t length = MAX_STATUS;
        while (length > 0 && (static_cast<unsigned char>(status[length]) & 0xC0U) == 0x80U) {
            --length;
        }
        status.resize(length);
    }
    return "STATUS=" + status + "\n";
}

/** Returns the monotonic clock of the service manager, in microseconds. */
std::string monotonicMicros()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(std::int64_t(now.tv_sec) * 1000000 + now.tv_nsec / 1000);
}

}

ServiceManager::ServiceManager(const Counters& hostCounters) : counters(hostCounters)
{
    const std::string path = takeVariable("NOTIFY_SOCKET");
    readWatchdog();
    if (!readAddress(path)) {
        return;
    }
    descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot notify the service manager");
    }
}

ServiceManager::~ServiceManager()
{
    if (descriptor != -1) {
        close(descriptor);
    }
}

/**
 * Sets the address from a path, or from "@" and an abstract name. Returns false if there is no service
 * manager, or one that is reached by other means, such as the host of a virtual machine.
 */
bool ServiceManager::readAddress(const std::string& path)
{
    if (path.size() < 2 || (path.front() != '/' && path.front() != '@')
        || path.size() >= sizeof address.sun_path) {
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    if (path.front() == '@') {
        address.sun_path[0] = '\0';
    }
    addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    return true;
}

/** Reads the period of the watchdog, if it watches this process. */
void ServiceManager::readWatchdog()
{
    const std::int64_t micros = parsePositive(takeVariable("WATCHDOG_USEC"));
    const std::string process = takeVariable("WATCHDOG_PID");
    if (process.empty() || parsePositive(process) == getpid()) {
        period = std::chrono::microseconds(micros);
    }
}

void ServiceManager::reportReady(const std::string& status)
{
    if (stopping) {
        return;
    }
    report("READY=1\n" + statusLine(status));
    lastProgress = Clock::now();
}

void ServiceManager::reportReloading()
{
    if (!stopping) {
        // The service manager compares the time with that of its own reload request.
        report("RELOADING=1\nMONOTONIC_USEC=" + monotonicMicros() + "\n" + statusLine("Reloading"));
    }
}

void ServiceManager::reportStopping(const std::string& status)
{
    stopping = true;
    report("STOPPING=1\n" + statusLine(status));
}

void ServiceManager::keepAlive()
{
    if (addressLength == 0 || period == std::chrono::microseconds::zero()) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const std::uint64_t tasksRun = counters.tasksRun;
    if (counters.requestsWaiting <= 0 || tasksRun != lastTasksRun) {
        lastTasksRun = tasksRun;
        lastProgress = now;
    }
    if (now < nextKeepAlive || now - lastProgress > period) {
        return;
    }
    // If the socket is full, the next call tries again.
    if (send("WATCHDOG=1", MSG_DONTWAIT)) {
        nextKeepAlive = now + period / 3;
    }
}

void ServiceManager::report(const std::string& message)
{
    if (addressLength == 0 || send(message, 0) || failed) {
        return;
    }
    failed = true;
    const std::string reason = nim::sys::sys_err_string(errno);
    try {
        NIM_LOG(Severity_WARNING) << "cannot notify the service manager: " << reason;
    } catch (const std::exception& exc) {
        writeError({"cannot notify the service manager: ", reason, "; cannot log: ", exc.what()});
    }
}

bool ServiceManager::send(const std::string& message, int flags) const
{
    ssize_t sent = 0;
    do {
        sent = sendto(descriptor, message.data(), message.size(), flags | MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), addressLength);
    } while (sent == -1 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

}
