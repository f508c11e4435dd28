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

/** The descriptor of a file stream's buffer, -1 for a closed one. */
int descriptorOf(std::filebuf& buffer)
{
    // The library shows it for a buffer of its own kind only; the member is the same in all.
    struct Member : std::filebuf
    {
        static int of(std::filebuf& buffer)
        {
            return buffer.is_open() ? (buffer.*&Member::_M_file).fd() : -1;
        }
    };
    return Member::of(buffer);
}

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

bool writeThrough(std::ofstream& stream, std::string_view text)
{
    if (!stream.good()) {
        return false;
    }
    const int descriptor = descriptorOf(*stream.rdbuf());
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            stream.setstate(std::ios_base::badbit);
            return false;
        }
    }
    return true;
}

}
