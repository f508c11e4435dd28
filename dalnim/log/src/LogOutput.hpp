#ifndef DALNIM_LOG_SRC_LOGOUTPUT_HPP
#define DALNIM_LOG_SRC_LOGOUTPUT_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/src/AppendFile.hpp>
#include <dalnim/log/src/LineOutcome.hpp>
#include <dalnim/log/src/StreamOutput.hpp>
#include <qv/pmx/src/CancellationOff.hpp>

#include <cstddef>
#include <memory>
#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::log {

/**
 * The output of a LogFile, without a lock: one thread at a time uses an object. LogFile.hpp documents the
 * operations.
 */
class LogOutput
{
public:
    LogOutput();
    /** Closes the output. */
    ~LogOutput();
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;

    const String& path() const noexcept
    {
        return outputPath;
    }
    void setPath(const String& path);
    /** Opens the output if it is not open, and returns its stream. */
    std::ostream* stream();
    void setStream(std::ostream& stream);
    std::size_t maxFileSize() const noexcept
    {
        return sizeLimit;
    }
    void setMaxFileSize(std::size_t size) noexcept
    {
        sizeLimit = size;
    }
    std::size_t maxNumberOfFiles() const noexcept
    {
        return rotatedLimit;
    }
    void setMaxNumberOfFiles(std::size_t number);
    /** The permissions of new files, or Control::MODE_OF_UMASK. */
    unsigned int fileMode() const noexcept
    {
        return newFileMode;
    }
    void setFileMode(unsigned int mode) noexcept
    {
        newFileMode = mode;
    }
    bool isOpen() const noexcept;
    bool isValid() const noexcept;
    bool isReserved() const noexcept;
    String displayPath() const;
    void close() noexcept;
    bool revertStream() noexcept;

    /** Exchanges the outputs, with their counts of rotated files; the limits are unchanged. */
    void exchange(LogOutput& other) noexcept;
    /** Returns true if the output is an open file of this path. */
    bool isOpenAt(const String& path) const noexcept;
    bool isSetTo(const std::ostream& stream) const noexcept
    {
        return outputStream == &stream;
    }

    /** Returns false if the output is a file that has been renamed or deleted. */
    bool isAtItsPath() const noexcept;

    /** Has the reports of signal handlers be written to the file of this output: see EvidenceLog. */
    void publish() const noexcept;

    /** Opens the output if it is not open. */
    void open()
    {
        if (file == nullptr && outputStream == nullptr) {
            openOutput();
        }
    }
    /** Opens a file, then counts the rotated ones: a concurrent rotation would rename it in between. */
    void openAt(const String& path);
    /** Writes a text to the output. Returns false, with the cause in `errno`, if it rejects the text. */
    bool begin(std::string_view text);
    /** Writes a line that ends in a newline, to standard error if need be, and rotates the file. */
    LineOutcome logLine(std::string_view line);

private:
    void openOutput();
    void openFile();
    void checkCreatable();
    bool tryWrite(std::string_view line);
    bool hasReachedLimit(bool isWritten);
    /** Returns false if the rotation failed, so that the output is standard error. */
    bool switchFile();
    /** To be called after each change of the file. */
    void followChange() const noexcept;

    String outputPath;
    /** The stream that is the output. Null if that is a file, also one not opened yet, or none. Not owned. */
    std::ostream* outputStream;
    /** The file that is the output; null if there is none. */
    std::unique_ptr<AppendFile> file;
    /** Bytes; 0 for no limit. */
    std::size_t sizeLimit;
    /** Maximum number of rotated files; 0 for no limit. */
    std::size_t rotatedLimit;
    /** Permissions of new files. */
    unsigned int newFileMode;
    /** Number of rotated files that exist. */
    std::size_t rotatedCount;
};

[[gnu::always_inline]] inline bool LogOutput::tryWrite(std::string_view line)
{
    return file != nullptr ? file->append(line) : StreamOutput::write(*outputStream, line);
}

[[gnu::always_inline]] inline LineOutcome LogOutput::logLine(std::string_view line)
{
    open();
    const qv::CancellationOff uncut;
    const bool isWritten = tryWrite(line);
    if (!isWritten) {
        // The next record tries its own output again.
        StreamOutput::writeToFallback(line);
    }
    if (sizeLimit != 0 && hasReachedLimit(isWritten)) {
        return {isWritten, switchFile() ? LineOutcome::Rotation::DONE : LineOutcome::Rotation::FAILED};
    }
    return {isWritten, LineOutcome::Rotation::NONE};
}

}

#endif
