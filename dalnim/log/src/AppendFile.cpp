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

/** How much of a size limit may be filled before the kernel is asked again what the file has. */
constexpr std::size_t PARTS_OF_LIMIT = 1024;

}

int AppendFile::descriptor()
{
    // The library shows it for a buffer of its own kind only; the member is the same in all.
    struct Member : std::filebuf
    {
        static int of(std::filebuf& buffer)
        {
            return buffer.is_open() ? (buffer.*&Member::_M_file).fd() : -1;
        }
    };
    return Member::of(*rdbuf());
}

void AppendFile::openAtEnd(const String& path)
{
    positionKnown = false;
    // std::ofstream::open cannot ask for O_CLOEXEC, so the descriptor is opened here and given to the
    // stream's own buffer, which from then on is the same as if it had opened the file itself.
    const int opened = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, FILE_MODE);
    if (opened == -1) {
        setstate(std::ios_base::failbit);
        return;
    }
    __gnu_cxx::stdio_filebuf<char> buffer(opened, std::ios_base::out | std::ios_base::app, BUFFER_SIZE);
    if (!buffer.is_open()) {
        const int error = errno;
        ::close(opened);
        errno = error;
        setstate(std::ios_base::failbit);
        return;
    }
    *rdbuf() = std::move(static_cast<std::filebuf&>(buffer));
    clear();
}

bool AppendFile::append(std::string_view text)
{
    if (!good()) {
        return false;
    }
    const int file = descriptor();
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
            appended += static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            setstate(std::ios_base::badbit);
            return false;
        }
    }
    return true;
}

bool AppendFile::hasReached(std::size_t size)
{
    if (positionKnown && exclusive && appended <= size / PARTS_OF_LIMIT && position + appended < size) {
        return false;
    }
    const off_t asked = ::lseek(descriptor(), 0, SEEK_CUR);
    if (asked == -1) {
        // A position that cannot be told counts as very large.
        positionKnown = false;
        return true;
    }
    if (positionKnown && static_cast<std::size_t>(asked) != position + appended) {
        exclusive = false;
    }
    positionKnown = true;
    position = static_cast<std::size_t>(asked);
    appended = 0;
    return position >= size;
}

}
