#include "DocumentInput.hpp"

#include <dalnim/sys/SysError.hpp>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

constexpr int POLL_MILLISECONDS = 100;

int openDocument(const std::string& path)
{
    // O_NONBLOCK: waiting for the writer of a pipe here would ignore the end of the run. underflow() waits.
    const int descriptor = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor == -1) {
        throw nim::sys::system_error();
    }
    return descriptor;
}

}

DocumentInput::DocumentInput(const std::string& path, const Stop& hostStop)
    : name(path), stop(hostStop), descriptor(openDocument(path)), buffer()
{
}

DocumentInput::~DocumentInput()
{
    if (descriptor != STDIN_FILENO) {
        close(descriptor);
    }
}

void DocumentInput::requireEnd() const
{
    if (failure != 0) {
        throw nim::sys::system_error(failure);
    }
}

DocumentInput::int_type DocumentInput::underflow()
{
    while (failure == 0 && waitForBytes()) {
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count == 0) {
            break;
        }
        if (count > 0) {
            setg(buffer.data(), buffer.data(), buffer.data() + count);
            return traits_type::to_int_type(buffer[0]);
        }
        if (errno != EAGAIN && errno != EINTR) {
            failure = errno;
        }
    }
    return traits_type::eof();
}

/** Returns false if the run ends first. */
bool DocumentInput::waitForBytes()
{
    while (!stop.now) {
        pollfd waited = {descriptor, POLLIN, 0};
        if (poll(&waited, 1, POLL_MILLISECONDS) > 0) {
            return true;
        }
    }
    failure = EINTR;
    return false;
}

}
