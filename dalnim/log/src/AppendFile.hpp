#ifndef DALNIM_LOG_SRC_APPENDFILE_HPP
#define DALNIM_LOG_SRC_APPENDFILE_HPP

#include <dalnim/String.hpp>

#include <cerrno>
#include <cstddef>
#include <fstream>
#include <memory>
#include <string_view>
#include <unistd.h>

namespace com::kor::dal::nim::log {

/**
 * A file that lines are appended to, even if other processes append to it as well. There is no buffer: a
 * line has been written, or rejected, when append() returns.
 *
 * Each line begins on a new line of the file: if the file ends inside one, because a process was killed or a
 * write was incomplete, a newline is written first.
 *
 * The descriptor is never 0, 1 or 2, and is closed in programs that the process starts. One thread at a time
 * uses an object.
 */
class AppendFile
{
public:
    AppendFile() = default;
    ~AppendFile();

    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    /**
     * Opens a file, which is created if it is missing and never truncated. A new file has the permissions
     * `mode` or, with Control::MODE_OF_UMASK, those that the umask leaves. Returns 0, or the error number if
     * it cannot be opened. The object must be closed. A thread that is cancelled while it waits for the
     * reader of a pipe leaves it closed.
     */
    int open(const String& path, unsigned int mode);
    void close() noexcept;
    bool isOpen() const noexcept
    {
        return descriptor != NONE;
    }
    /** Returns the descriptor, or -1. */
    int number() const noexcept
    {
        return descriptor;
    }
    /** Returns true if the last line was written; true as well before the first one. */
    bool isGood() const noexcept
    {
        return isOpen() && !hasFailed;
    }
    /**
     * Returns true if the file may be renamed: a regular file, also at the end of links. Pipes, devices and
     * the links of /proc, such as /dev/stdout, may not.
     */
    bool isRotatable() const noexcept
    {
        return rotatable;
    }

    /** Returns false if the file may be renamed, and `path`, by which it was opened, no longer leads to it.
     */
    bool isAt(const String& path) const noexcept;

    /**
     * Writes a line that ends in a newline, if possible by one system call. Returns false, with the cause in
     * `errno`, if the file rejects it; a part may have been written. The next line tries again. A line of
     * which the newline alone was rejected counts as written.
     */
    bool append(std::string_view line) noexcept;

    /**
     * Returns true if the last write ended at `size` or after it, or if the position is unknown.
     *
     * The object counts the bytes that it writes, and asks the kernel only if the count has reached `size` or
     * has grown by a thousandth of it. Appends by others are therefore seen that late the first time, and
     * immediately after that.
     */
    bool hasReached(std::size_t size) noexcept;

    /**
     * Returns a stream on the file, without a buffer, owned by this object. It has a descriptor of its own
     * and follows the object to the next file. If no descriptor is available, the stream is not open; the
     * next call tries again. Throws `std::bad_alloc`.
     */
    std::ofstream& stream();

private:
    static constexpr int NONE = -1;

    /** Writes a text, and returns the part that was not written. */
    std::string_view write(std::string_view text) noexcept;
    /** Writes a newline and a line, and returns the part of the line that was not written. */
    std::string_view writeAfterNewline(std::string_view line) noexcept;
    /** Opens the stream that was handed out on the file, or sets its `failbit`. */
    void attachStream();

    int descriptor = NONE;
    bool rotatable = false;
    /** Whether the file ends inside a line. */
    bool endsInsideLine = false;
    bool hasFailed = false;
    /** Whether `position` has been read since the file was opened. */
    bool positionKnown = false;
    /** Whether this object has written all bytes after `position`. */
    bool exclusive = true;
    /** File position, in bytes, when it was last read from the kernel. */
    std::size_t position = 0;
    /** Bytes written since then. */
    std::size_t appended = 0;
    /** The stream that stream() returns; null until it is called. */
    std::unique_ptr<std::ofstream> handedOut;
};

// Inline, like all between a statement and its write: in profiles of records, each return to a frame below
// which the system call was made took some 13 ns, as if the processor did not predict it.

[[gnu::always_inline]] inline bool AppendFile::append(std::string_view line) noexcept
{
    const std::string_view rest =
        __builtin_expect(endsInsideLine, false) ? writeAfterNewline(line) : write(line);
    // A line that lacks only its newline counts as written; the next one begins with a newline.
    const bool isWritten = rest.empty() || (rest == "\n" && line.size() > rest.size());
    hasFailed = !isWritten;
    return isWritten;
}

[[gnu::always_inline]] inline std::string_view AppendFile::write(std::string_view text) noexcept
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written > 0) {
            const auto count = static_cast<std::size_t>(written);
            appended += count;
            endsInsideLine = text[count - 1] != '\n';
            text.remove_prefix(count);
        } else if (written == 0 || errno != EINTR) {
            break;
        }
    }
    return text;
}

}

#endif
