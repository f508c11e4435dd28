#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/AppendFile.hpp>

#include <cerrno>
#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <unistd.h>

namespace com::kor::dal::nim::log {

namespace {

constexpr mode_t FILE_MODE = 0666;

/** Unbuffered: the bytes of a write that failed do not come back when the file is closed. */
constexpr std::size_t BUFFER_SIZE = 1;

}

void openAppending(std::ofstream& stream, const String& path)
{
    // std::ofstream::open cannot ask for O_CLOEXEC, so the descriptor is opened here and given to the
    // stream's own buffer, which from then on is the same as if it had opened the file itself.
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, FILE_MODE);
    if (descriptor == -1) {
        stream.setstate(std::ios_base::failbit);
        return;
    }
    __gnu_cxx::stdio_filebuf<char> opened(descriptor, std::ios_base::out | std::ios_base::app, BUFFER_SIZE);
    if (!opened.is_open()) {
        const int error = errno;
        ::close(descriptor);
        errno = error;
        stream.setstate(std::ios_base::failbit);
        return;
    }
    *stream.rdbuf() = std::move(static_cast<std::filebuf&>(opened));
    stream.clear();
}

}
