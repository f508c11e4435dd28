#include <qv/rtlapi/src/KernelName.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <qv/pmx/src/CancellationOff.hpp>

namespace {

/** Returns true for a byte that continues a UTF-8 character. */
bool isContinuation(char byte)
{
    constexpr unsigned int MASK = 0xC0;
    constexpr unsigned int CONTINUATION = 0x80;
    return (static_cast<unsigned char>(byte) & MASK) == CONTINUATION;
}

/** Opens the file with the name of a thread. Returns -1 on failure. */
int openName(ThreadID_t thread, int flags)
{
    char path[64];
    static_cast<void>(std::snprintf(path, sizeof path, "/proc/self/task/%d/comm", static_cast<int>(thread)));
    return open(path, flags | O_CLOEXEC);
}

}

qv::KernelName::KernelName(const char* name) noexcept : _length(strnlen(name, MAX_LENGTH + 1))
{
    if (_length > MAX_LENGTH) {
        _length = MAX_LENGTH;
        while (_length != 0 && isContinuation(name[_length])) {
            --_length;
        }
    }
    std::memcpy(_name, name, _length);
}

qv::KernelName qv::KernelName::of(ThreadID_t thread) noexcept
{
    const CancellationOff cancellationOff;
    const int error = errno;
    KernelName name;
    const int file = openName(thread, O_RDONLY);
    if (file != -1) {
        // The file contains the name and a newline.
        const ssize_t length = read(file, name._name, sizeof name._name);
        name._length = length > 0 ? static_cast<std::size_t>(length) - 1 : 0;
        name._name[name._length] = '\0';
        close(file);
    }
    errno = error;
    return name;
}

void qv::KernelName::applyToCaller() const noexcept
{
    if (_length != 0) {
        pthread_setname_np(pthread_self(), _name);
    }
}

void qv::KernelName::applyTo(ThreadID_t thread) const noexcept
{
    if (_length == 0) {
        return;
    }
    const CancellationOff cancellationOff;
    const int error = errno;
    const int file = openName(thread, O_WRONLY);
    if (file != -1) {
        const ssize_t written = write(file, _name, _length);
        static_cast<void>(written);
        close(file);
    }
    errno = error;
}
