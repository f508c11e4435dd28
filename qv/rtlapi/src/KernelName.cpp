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
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/comm", static_cast<int>(thread));
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file != -1) {
        const ssize_t written = write(file, _name, _length);
        static_cast<void>(written);
        close(file);
    }
    errno = error;
}
