#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/AppendFile.hpp>

#include <dalnim/log/Control.hpp>
#include <qv/pmx/src/CancellationOff.hpp>

#include <array>
#include <cerrno>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <unistd.h>

#if __has_include(<ext/stdio_filebuf.h>)
#include <ext/stdio_filebuf.h>
#endif

namespace com::kor::dal::nim::log {

namespace {

/** Permissions of a new file, less the umask. */
constexpr mode_t FILE_MODE = 0666;
/** Permissions of a new file until it has those that were asked for: none for other users. */
constexpr mode_t PRIVATE_MODE = 0600;
constexpr int FLAGS = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY;

/** Fraction of a size limit that may be written before the kernel is asked for the file size again. */
constexpr std::size_t PARTS_OF_LIMIT = 1024;

/** The first descriptor that no standard stream has. */
constexpr int FIRST_DESCRIPTOR = STDERR_FILENO + 1;

/** Owns a descriptor. */
class Descriptor
{
public:
    explicit Descriptor(int opened) noexcept : number(opened) {}
    ~Descriptor()
    {
        if (number != -1) {
            const qv::CancellationOff uncut;
            ::close(number);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const noexcept
    {
        return number;
    }
    int release() noexcept
    {
        const int released = number;
        number = -1;
        return released;
    }

private:
    int number;
};

int duplicate(int descriptor) noexcept
{
    return ::fcntl(descriptor, F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR);
}

/**
 * Opens the unbuffered `buffer` on the file of `descriptor`, with a descriptor of its own. A buffer would
 * write bytes that were rejected again later. Returns false if no descriptor is available.
 */
bool openBuffer(std::filebuf& buffer, int descriptor)
{
#if __has_include(<ext/stdio_filebuf.h>)
    // std::filebuf::open() cannot ask for O_CLOEXEC, and the path may lead to another file by now.
    constexpr std::size_t NO_BUFFER = 1;
    Descriptor copy(duplicate(descriptor));
    if (copy.get() == -1) {
        return false;
    }
    __gnu_cxx::stdio_filebuf<char> opened(copy.get(), std::ios_base::out | std::ios_base::app, NO_BUFFER);
    if (!opened.is_open()) {
        return false;
    }
    copy.release();
    buffer = std::move(static_cast<std::filebuf&>(opened));
    return true;
#else
    // An extension of libc++, for the same reason.
    Descriptor copy(duplicate(descriptor));
    if (copy.get() == -1 || buffer.__open(copy.get(), std::ios_base::out | std::ios_base::app) == nullptr) {
        return false;
    }
    copy.release();
    return true;
#endif
}

/** Returns true if the path leads to a pipe. Leaves `errno` as it is. */
bool isPipe(const String& path) noexcept
{
    const int error = errno;
    struct stat status;
    const bool isFifo = ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    errno = error;
    return isFifo;
}

/**
 * Opens a file, and gives it the permissions `mode` if it is new. Returns -1, with the cause in `errno`. The
 * thread may be cancelled during the call: a pipe without a reader would hold it forever.
 */
int openWithMode(const char* path, unsigned int mode)
{
    if (mode == Control::MODE_OF_UMASK) {
        return ::open(path, FLAGS | O_CREAT, FILE_MODE);
    }
    int opened = ::open(path, FLAGS);
    if (opened != -1 || errno != ENOENT) {
        return opened;
    }
    opened = ::open(path, FLAGS | O_CREAT, PRIVATE_MODE & mode);
    if (opened != -1) {
        // Fails for a file that another user has just created, which keeps the permissions of that user.
        static_cast<void>(::fchmod(opened, mode));
    }
    return opened;
}

/**
 * Opens a file for appending, at FIRST_DESCRIPTOR or above. Returns -1, with the cause in `errno`. The thread
 * may be cancelled during the call.
 */
int openToAppend(const String& path, unsigned int mode)
{
    int opened = -1;
    do {
        opened = openWithMode(path.c_str(), mode);
        // The opening of a pipe waits for a reader, and a signal must not end that.
    } while (opened == -1 && errno == EINTR && isPipe(path));
    if (opened == -1 || opened >= FIRST_DESCRIPTOR) {
        return opened;
    }
    const Descriptor standard(opened);
    return duplicate(standard.get());
}

/** Returns true if the path is, or leads to, a symbolic link of /proc, which denotes a descriptor. */
bool isDescriptorLink(String path)
{
    constexpr int MOST_LINKS = 40;
    struct stat status;
    for (int i = 0; i < MOST_LINKS && ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode); ++i) {
        const String directory = path.substr(0, path.rfind('/') + 1);
        struct statfs system;
        if (::statfs((directory + '.').c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC) {
            return true;
        }
        std::array<char, PATH_MAX> target;
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length <= 0) {
            return false;
        }
        const String next(target.data(), static_cast<std::size_t>(length));
        path = next[0] == '/' ? next : directory + next;
    }
    return false;
}

/** The end of a file. */
struct End
{
    off_t size;
    char lastByte;

    /** Reads it. Returns an empty file's if the file cannot be read. */
    static End of(int reader) noexcept
    {
        struct stat status;
        End end = {0, '\n'};
        if (::fstat(reader, &status) == 0 && status.st_size > 0
            && ::pread(reader, &end.lastByte, 1, status.st_size - 1) == 1) {
            end.size = status.st_size;
        }
        return end;
    }
    bool isInsideLine() const noexcept
    {
        return size != 0 && lastByte != '\n';
    }
};

/**
 * Returns true if a regular file ends inside a line that no other process is writing: such a line would have
 * grown, or would be complete, when the file is read a second time.
 */
bool isTruncated(const String& path, const struct stat& file) noexcept
{
    constexpr timespec PAUSE = {0, 1000000};
    if (file.st_size == 0) {
        return false;
    }
    const Descriptor reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status;
    if (reader.get() == -1 || ::fstat(reader.get(), &status) == -1 || status.st_ino != file.st_ino
        || status.st_dev != file.st_dev) {
        return false;
    }
    const End first = End::of(reader.get());
    if (!first.isInsideLine()) {
        return false;
    }
    ::nanosleep(&PAUSE, nullptr);
    // Waits for the end of a write: file systems lock the file for both operations.
    ::lseek(reader.get(), 0, SEEK_DATA);
    const End second = End::of(reader.get());
    return second.isInsideLine() && second.size == first.size;
}

}

AppendFile::~AppendFile()
{
    close();
}

int AppendFile::open(const String& path, unsigned int mode)
{
    Descriptor opened(openToAppend(path, mode));
    const qv::CancellationOff uncut;
    struct stat status;
    if (opened.get() == -1 || ::fstat(opened.get(), &status) == -1) {
        return errno;
    }
    const bool isRegular = S_ISREG(status.st_mode);
    rotatable = isRegular && !isDescriptorLink(path);
    endsInsideLine = isRegular && isTruncated(path, status);
    hasFailed = false;
    positionKnown = false;
    exclusive = handedOut == nullptr;
    descriptor = opened.release();
    if (handedOut != nullptr) {
        attachStream();
    }
    return 0;
}

void AppendFile::close() noexcept
{
    const qv::CancellationOff uncut;
    if (handedOut != nullptr) {
        handedOut->rdbuf()->close();
    }
    if (isOpen()) {
        ::close(descriptor);
        descriptor = NONE;
    }
}

bool AppendFile::isAt(const String& path) const noexcept
{
    struct stat own;
    struct stat found;
    return !rotatable || ::fstat(descriptor, &own) == -1
           || (::stat(path.c_str(), &found) == 0 && found.st_ino == own.st_ino && found.st_dev == own.st_dev);
}

std::string_view AppendFile::writeAfterNewline(std::string_view line) noexcept
{
    char newline = '\n';
    // writev() does not write to its pieces.
    const std::array<iovec, 2> pieces = {{{&newline, 1}, {const_cast<char*>(line.data()), line.size()}}};
    ssize_t written = -1;
    do {
        written = ::writev(descriptor, pieces.data(), pieces.size());
    } while (written == -1 && errno == EINTR);
    if (written < 1) {
        return line;
    }
    const std::size_t count = static_cast<std::size_t>(written) - 1;
    appended += count + 1;
    endsInsideLine = count != 0 && line[count - 1] != '\n';
    return write(line.substr(count));
}

bool AppendFile::hasReached(std::size_t size) noexcept
{
    if (positionKnown && exclusive && appended <= size / PARTS_OF_LIMIT && position + appended < size) {
        return false;
    }
    const off_t asked = ::lseek(descriptor, 0, SEEK_CUR);
    if (asked == -1) {
        // A position that is unknown counts as very large.
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

std::ofstream& AppendFile::stream()
{
    if (handedOut == nullptr) {
        handedOut = std::make_unique<std::ofstream>();
    }
    exclusive = false;
    const qv::CancellationOff uncut;
    if (isOpen() && !handedOut->is_open()) {
        attachStream();
    }
    if (endsInsideLine) {
        write("\n");
    }
    return *handedOut;
}

void AppendFile::attachStream()
{
    if (openBuffer(*handedOut->rdbuf(), descriptor)) {
        handedOut->clear();
#if !__has_include(<ext/stdio_filebuf.h>)
        // Its std::FILE has a buffer.
        handedOut->setf(std::ios_base::unitbuf);
#endif
        return;
    }
    try {
        handedOut->setstate(std::ios_base::failbit);
    } catch (const std::ios_base::failure&) {
        // A user of the stream has enabled exceptions. The log does not need the stream.
    }
}

}
