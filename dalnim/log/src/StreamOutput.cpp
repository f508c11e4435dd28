#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/StreamOutput.hpp>

#include <dalnim/log/Common.hpp>
#include <qv/pmx/src/CancellationOff.hpp>
#include <qv/pmx/src/standard_error.hpp>
#include <dalnim/log/src/LineBuffer.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/log/src/RecordPriority.hpp>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <new>
#include <poll.h>
#include <stdio_ext.h>
#include <typeinfo>
#include <unistd.h>

#if __has_include(<ext/stdio_sync_filebuf.h>)
#include <ext/stdio_filebuf.h>
#include <ext/stdio_sync_filebuf.h>
#endif

namespace com::kor::dal::nim::log {

namespace {

constexpr std::chrono::milliseconds MAX_WAIT(1000);

/** Limits the time that the writes of one text wait for a full descriptor. */
class WriteTimeout
{
public:
    explicit WriteTimeout(std::chrono::milliseconds wait) : limit(wait), started(false) {}

    /** Blocks until the descriptor accepts bytes. Returns false, with EAGAIN, if the time has run out. */
    bool waitUntilWritable(int descriptor)
    {
        const auto now = std::chrono::steady_clock::now();
        if (!started) {
            started = true;
            deadline = now + limit;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
        if (left > 0) {
            pollfd request = {descriptor, POLLOUT, 0};
            const int ready = ::poll(&request, 1, static_cast<int>(left));
            // After a signal the caller finds the descriptor full again, and waits for the rest of the time.
            if (ready > 0 || (ready == -1 && errno == EINTR)) {
                return true;
            }
        }
        errno = EAGAIN;
        return false;
    }

private:
    const std::chrono::milliseconds limit;
    bool started;
    std::chrono::steady_clock::time_point deadline;
};

#if __has_include(<ext/stdio_sync_filebuf.h>)

/** Returns true if `buffer` is the one that the C++ library gives a stream of this descriptor. */
bool isStandardBuffer(std::streambuf& buffer, int descriptor, std::FILE* file)
{
    typedef __gnu_cxx::stdio_sync_filebuf<char> Synchronized;
    typedef __gnu_cxx::stdio_filebuf<char> Unsynchronized;
    const std::type_info& type = typeid(buffer);
    if (type == typeid(Synchronized)) {
        return static_cast<Synchronized&>(buffer).file() == file;
    }
    // After sync_with_stdio(false).
    if (type == typeid(Unsynchronized)) {
        auto& own = static_cast<Unsynchronized&>(buffer);
        return own.is_open() && own.fd() == descriptor;
    }
    return false;
}

#else

// At load.
const std::streambuf* const output_buffer = std::cout.rdbuf();
const std::streambuf* const error_buffer = std::cerr.rdbuf();

/** The same for a C++ library that never replaces the buffers of the standard streams. */
bool isStandardBuffer(std::streambuf& buffer, int descriptor, std::FILE*)
{
    return &buffer == (descriptor == STDOUT_FILENO ? output_buffer : error_buffer);
}

#endif

/** A standard descriptor and the C stream on it. */
class StandardDescriptor
{
public:
    constexpr StandardDescriptor(int descriptor_number, std::FILE*& descriptor_file) noexcept
        : number(descriptor_number), file(descriptor_file), countsAsClosed(false), isStalled(false),
          isTruncated(false)
    {
    }

    /** Returns true if `buffer` is the one that the C++ library gives a stream of this descriptor. */
    bool hasBuffer(std::streambuf* buffer) const
    {
        return buffer != nullptr && isStandardBuffer(*buffer, number, file);
    }

    bool write(std::ostream& stream, std::string_view text)
    {
        const int descriptor = openDescriptor();
        if (descriptor == -1) {
            errno = EBADF;
            return false;
        }
        if (stream.tie() != nullptr) {
            // Before the lock: the other stream has one of its own.
            flush(*stream.tie());
        }
        const Lock lock(file);
        WriteTimeout timeout(isStalled.load(std::memory_order_relaxed) ? std::chrono::milliseconds(0)
                                                                       : MAX_WAIT);
        // The C library discards bytes that a full descriptor rejects.
        if (::__fpending(file) == 0 || !isFull(descriptor) || timeout.waitUntilWritable(descriptor)) {
            flush(stream);
        }
        const bool isWritten = writeWhole(descriptor, text, timeout);
        // A reader that has stopped costs one wait, not one for each record.
        isStalled.store(!isWritten && errno == EAGAIN, std::memory_order_relaxed);
        return isWritten;
    }

    off_t position() const
    {
        const int descriptor = openDescriptor();
        return descriptor == -1 ? -1 : ::lseek(descriptor, 0, SEEK_CUR);
    }

    void checkIfOpen() noexcept
    {
        countsAsClosed.store(::fcntl(number, F_GETFD) == -1, std::memory_order_relaxed);
    }

private:
    /** Holds the lock of a C stream, which fork() reinitialises in the child. */
    class Lock
    {
    public:
        explicit Lock(std::FILE* stream) : locked(stream)
        {
            ::flockfile(locked);
        }
        ~Lock()
        {
            ::funlockfile(locked);
        }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        std::FILE* const locked;
    };

    /** Returns -1 if the descriptor is closed or counts as closed. A freopen() may have changed its number.
     */
    int openDescriptor() const
    {
        return countsAsClosed.load(std::memory_order_relaxed) ? -1 : ::fileno(file);
    }

    /** Flushes what the program has inserted into a stream. The state of the stream is unchanged. */
    static void flush(std::ostream& stream)
    {
        try {
            if (stream.rdbuf() != nullptr) {
                stream.rdbuf()->pubsync();
            }
        } catch (const std::exception&) {
            // The bytes are the program's. Losing them must not prevent a record.
        }
    }

    static bool isFull(int descriptor)
    {
        pollfd request = {descriptor, POLLOUT, 0};
        return ::poll(&request, 1, 0) == 0;
    }

    /** Writes `text`, after a newline if the last text was truncated. */
    bool writeWhole(int descriptor, std::string_view text, WriteTimeout& timeout)
    {
        if (isTruncated.load(std::memory_order_relaxed) && !writePart(descriptor, "\n", timeout)) {
            return false;
        }
        return writePart(descriptor, text, timeout);
    }

    bool writePart(int descriptor, std::string_view text, WriteTimeout& timeout)
    {
        while (!text.empty()) {
            const ssize_t written = ::write(descriptor, text.data(), text.size());
            if (written > 0) {
                const auto count = static_cast<std::size_t>(written);
                isTruncated.store(count != text.size() && text[count - 1] != '\n', std::memory_order_relaxed);
                text.remove_prefix(count);
            } else if (written == 0 || (errno != EINTR && errno != EAGAIN)
                       || (errno == EAGAIN && !timeout.waitUntilWritable(descriptor))) {
                return false;
            }
        }
        return true;
    }

    const int number;
    /** A reference, so that the compiler can initialise the object. */
    std::FILE*& file;
    // Relaxed: each is a value of its own. The second and third are only used with the lock of `file` held.
    std::atomic<bool> countsAsClosed;
    /** Whether the last write timed out. */
    std::atomic<bool> isStalled;
    /** Whether the last text was truncated inside a line. Written with the lock of `file` held. */
    std::atomic<bool> isTruncated;
};

// Initialised by the compiler: static constructors of any source may log.
StandardDescriptor standard_output(STDOUT_FILENO, stdout);
StandardDescriptor standard_error(STDERR_FILENO, stderr);

/** Records which descriptors are closed when the library is loaded. */
const struct CheckAtLoad
{
    CheckAtLoad() noexcept
    {
        standard_output.checkIfOpen();
        standard_error.checkIfOpen();
    }
} check_at_load;

/** Returns the descriptor of a standard stream; null for any other stream. */
StandardDescriptor* standardDescriptor(const std::ostream& stream)
{
    if (&stream == &std::cerr || &stream == &std::clog) {
        return &standard_error;
    }
    return &stream == &std::cout ? &standard_output : nullptr;
}

/** Returns the descriptor that `stream` is written to directly; null if it is written as a stream. */
StandardDescriptor* directDescriptor(const std::ostream& stream)
{
    StandardDescriptor* const standard = standardDescriptor(stream);
    return standard != nullptr && standard->hasBuffer(stream.rdbuf()) ? standard : nullptr;
}

}

bool StreamOutput::write(std::ostream& stream, std::string_view text)
{
    return __builtin_expect(RecordPriority::isEnabled(), false) ? writeWithPriority(stream, text)
                                                                : writePart(stream, text);
}

bool StreamOutput::writeWithPriority(std::ostream& stream, std::string_view text)
{
    LineBuffer lines;
    return writePart(stream, prefixed(stream, text, lines));
}

std::string_view StreamOutput::prefixed(const std::ostream& stream, std::string_view text, LineBuffer& lines)
{
    // The streams, not their buffers: a program may pass on what it receives in place of the descriptor.
    if (RecordPriority::isEnabled() && (&stream == &std::cerr || &stream == &std::clog)) {
        try {
            RecordPriority::append(lines, text);
            return lines.view();
        } catch (const std::bad_alloc&) {
            // A record without priority is better than none.
        }
    }
    return text;
}

bool StreamOutput::writePart(std::ostream& stream, std::string_view text)
{
    if (StandardDescriptor* const standard = directDescriptor(stream)) {
        return standard->write(stream, text);
    }
    try {
        return stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush().good();
    } catch (const std::exception&) {
        return false;
    }
}

void StreamOutput::writeToFallback(std::string_view line)
{
    std::ostream& stream = *STD_LOG_STREAMS[0].addr;
    const qv::CancellationOff uncut;
    try {
        LineBuffer lines;
        {
            const RecordPriority priority(Severity_ERROR);
            RecordPriority::append(lines, WRITE_ERROR_MESSAGE);
        }
        lines.append('\n');
        RecordPriority::append(lines, line);
        writePart(stream, lines.view());
    } catch (const std::bad_alloc&) {
        writePart(stream, WRITE_ERROR_MESSAGE);
        writePart(stream, "\n");
        writePart(stream, line);
    }
}

bool StreamOutput::isDirect(const std::ostream& stream)
{
    return directDescriptor(stream) != nullptr;
}

std::size_t StreamOutput::position(std::ostream& stream)
{
    // On failure each of them returns -1, which converts to the largest size.
    if (const StandardDescriptor* const standard = directDescriptor(stream)) {
        return static_cast<std::size_t>(standard->position());
    }
    return static_cast<std::size_t>(std::streamoff(stream.tellp()));
}

void StreamOutput::recheckDescriptor(const std::ostream& stream) noexcept
{
    if (StandardDescriptor* const standard = standardDescriptor(stream)) {
        standard->checkIfOpen();
        if (standard == &standard_error) {
            qv::recheckStandardError();
        }
    }
}

}
