#include <dalnim/dalbase.hpp>

#include <dalnim/sys/internal/src/EvidenceOutput.hpp>

#include <dalnim/sys/InitLock.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/src/SafeMemory.hpp>
#include <qv/pmx/src/standard_error.hpp>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace com::kor::dal::nim::sys::internal {

std::atomic<const EvidenceOutput::LogFormat*> EvidenceOutput::logFormat;
std::atomic<int> EvidenceOutput::logDescriptor{NONE};
std::atomic<bool> EvidenceOutput::hasLogFile;

namespace {

/** A number that programs rarely use, so that the descriptor is easy to recognise. */
constexpr int FIRST_NUMBER = 100;

/** Opens a descriptor to which nothing can be written. Not /dev/null, which some containers lack. */
int openNothing() noexcept
{
    return ::open("/", O_PATH | O_CLOEXEC);
}

}

void EvidenceOutput::followLog()
{
    reserve();
    // Without InitLock, since the log acquires its own locks.
    if (const LogFormat* const format = logFormat.load(std::memory_order_acquire)) {
        format->publish();
    }
}

/** Reserves the descriptor, unless that has been done. */
void EvidenceOutput::reserve()
{
    const InitLock lock(true);
    if (isFollowingLog()) {
        return;
    }
    const int opened = openNothing();
    int reserved = opened == -1 ? -1 : ::fcntl(opened, F_DUPFD_CLOEXEC, FIRST_NUMBER);
    if (opened != -1 && reserved == -1 && errno == EINVAL) {
        // The limit of the process is lower.
        reserved = ::fcntl(opened, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    }
    const int error = errno;
    if (opened != -1) {
        ::close(opened);
    }
    if (reserved == -1) {
        throw system_error(error);
    }
    logDescriptor.store(reserved, std::memory_order_release);
}

void EvidenceOutput::setLogFile(int descriptor) noexcept
{
    const int reserved = logDescriptor.load(std::memory_order_acquire);
    if (reserved == NONE) {
        return;
    }
    const ErrnoKeeper keeper;
    if (descriptor != -1 && ::dup3(descriptor, reserved, O_CLOEXEC) == reserved) {
        hasLogFile.store(true, std::memory_order_release);
        return;
    }
    hasLogFile.store(false, std::memory_order_release);
    const int none = openNothing();
    if (none != -1) {
        ::dup3(none, reserved, O_CLOEXEC);
        ::close(none);
    }
}

void EvidenceOutput::writeRecord(const Record& record, std::string_view report, char* memory,
                                 std::size_t size) noexcept
{
    const LogFormat* const format = logFormat.load(std::memory_order_acquire);
    SafeText text(memory, size);
    if (format != nullptr) {
        std::timespec now = {};
        ::clock_gettime(CLOCK_REALTIME, &now);
        format->appendPrefix(text, record, now, static_cast<ThreadID_t>(::syscall(SYS_gettid)));
    }
    const std::size_t prefix = text.size();
    text << report;
    if (const int error = qv::standardError(); error != NONE) {
        write(error, text.view());
    }
    if (format == nullptr || !hasLogFile.load(std::memory_order_acquire)) {
        return;
    }
    if (format->escapes()) {
        text.truncate(prefix);
        for (std::size_t begin = 0; begin < report.size();) {
            const std::size_t end = std::min(report.find('\n', begin), report.size());
            text << report.substr(begin, end - begin) << (end + 1 < report.size() ? "\\n" : "\n");
            begin = end + 1;
        }
    }
    write(logDescriptor.load(std::memory_order_acquire), text.view());
}

void EvidenceOutput::write(int descriptor, std::string_view text) noexcept
{
    // After poll(), a pipe has room for so many bytes, and the write does not wait.
    constexpr std::size_t ROOM_IN_PIPE = 4096;
    constexpr int LIMIT_MS = 1000;
    const ErrnoKeeper keeper;
    while (!text.empty()) {
        // A report is one write, unless the output is something that can be full.
        const bool isFile = ::lseek(descriptor, 0, SEEK_CUR) != -1;
        pollfd waiting = {descriptor, POLLOUT, 0};
        // A write to a pipe without a reader would send SIGPIPE.
        if (!isFile
            && (::poll(&waiting, 1, LIMIT_MS) == 0 || (waiting.revents & (POLLERR | POLLNVAL)) != 0)) {
            return;
        }
        const std::size_t count = isFile ? text.size() : std::min(text.size(), ROOM_IN_PIPE);
        const ssize_t written = ::write(descriptor, text.data(), count);
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

}
