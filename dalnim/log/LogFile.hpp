#ifndef DALNIM_LOG_LOGFILE_HPP
#define DALNIM_LOG_LOGFILE_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <qv/pmx/api.h>
#include <qv/pmx/thread_safety.h>

#include <cstddef>
#include <ios>
#include <memory>
#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::log {

class ForkEntry;
struct LineOutcome;
class LogOutput;

/**
 * The output of a logger: a file of its own, opened at the first line and rotated by size, or a stream that
 * the caller owns. A line that the output rejects is written to standard error.
 *
 * The rotated files of a path P are P ".0" (the newest), P ".1" and so on. A rotation never replaces a file
 * that exists; a missing number is filled by the next rotation. Only regular files are rotated, also at the
 * end of links. The diagnostics of rotation are written to standard error, never to the log.
 *
 * Each line begins on a new line of the file: if the file ends inside one, because a process was killed or
 * the disk was full, a newline is written first.
 *
 * Any thread may call any operation: a line and the rotation that it causes are one step to all
 * other threads, and a thread is not cancelled within that step. The stream that getStream() returns is not
 * protected. No operation calls back into a logger.
 */
class DALNIM_API LogFile : public mem::RefCntObject
{
public:
    static constexpr const char CLASS_NAME[] = "LogFile";

    /** Writes to standard error, without limits. */
    LogFile();
    /** Closes the output. */
    ~LogFile() override;

    /** Returns the path of the file, or an empty string if the output is not a file of this object. */
    virtual String getPath() const;
    /**
     * Closes the current output, sets the path, and counts the rotated files. The file is opened by the first
     * line. With an empty path, lines are written to standard error.
     */
    virtual void setPath(const String& path);
    /**
     * Opens the output if it is not open, and returns its stream, which is owned by this object or by
     * the caller of setStream(). That of a file is a `std::ofstream` without a buffer, on a descriptor of its
     * own; it follows a rotation, and its state has no effect on the lines of the log. If no descriptor is
     * available for it, it is not open, and the next call tries again.
     *
     * @throws sys::system_error if the file cannot be opened. If it may not be created (13, `EACCES`) or if
     * the open itself fails (its `errno`), the path is cleared. Any other number is a failure of the check
     *         before the open; the path is unchanged
     */
    virtual std::ostream* getStream() const;
    /**
     * Closes the current output, and writes to a stream of the caller.
     * @param stream  must exist until another output is set
     * @throws std::invalid_argument "Supplied std::ios is not a std::ostream."
     */
    virtual void setStream(std::ios& stream);
    /** Returns the size in bytes at which the file is rotated; 0 if it is never rotated. */
    virtual std::size_t getMaxFileSize() const;
    /**
     * Sets the size at which the file is rotated, from the next line. A file may exceed the limit by one
     * line, and by a thousandth of the limit when another process appends to it for the first time.
     * @param size  bytes; 0 for no limit
     */
    virtual void setMaxFileSize(std::size_t size);
    /** Returns the maximum number of rotated files; 0 if there is none. */
    virtual std::size_t getMaxNumberOfFiles() const;
    /** Sets the maximum number of rotated files, and immediately deletes any excess files. */
    virtual void setMaxNumberOfFiles(std::size_t number);
    /** Returns the permissions of new files, or Control::MODE_OF_UMASK; see Control::setFileMode(). */
    unsigned int getFileMode() const;
    /** Sets the permissions of the files that are created afterwards. */
    void setFileMode(unsigned int mode);
    /** Returns true if there is a stream in a good state, or a file that the last line was written to. */
    virtual bool is_open() const;
    /** Returns true if there is a stream or, with a path, if the file is open. */
    virtual bool is_valid() const;
    /** Returns true if the output is a stream that this object does not own. */
    virtual bool is_reserved() const;
    /**
     * Writes one line, without the trailing white space of `msg`, if possible by one system call; then
     * rotates the file if it has reached its size. A line that the output rejects is written to standard
     * error after an error message, and the next one tries the same output again, also if a stream throws.
     * @throws sys::system_error like getStream()
     */
    virtual void log(const String& msg);
    /**
     * Determines the display name of the output.
     * @param path  receives the path, a standard stream's name, "<not set>" or "<user assigned stream>"
     * @param deep  whether the string must share nothing with this object; no string does
     */
    virtual void getCurrentPath(String& path, bool deep = false) const;
    /** Closes the output, and clears the path; the limits are unchanged. */
    virtual void close() const;
    /** Closes the output, and selects standard error. Returns false if that was the output already. */
    virtual bool revertStream() const;

private:
    friend class Write;

    /** For a logger: log(). */
    __attribute__((visibility("hidden"))) LineOutcome logMessage(const String& msg);
    /** log() of a line that is trimmed and ends in a newline. */
    __attribute__((visibility("hidden"))) LineOutcome logLine(std::string_view line);
    /** For a logger: writes the stream header. Returns false if the output rejects it. */
    bool begin(const String& text) const;
    /** The settings that a logger sets together with the output. */
    struct Limits
    {
        unsigned int fileMode;
        std::size_t maxFileSize;
        std::size_t maxNumberOfFiles;
    };

    /**
     * For a logger: sets the limits and, unless `other` is null, exchanges the outputs of this file and
     * `other`. Both are one step to loggers that share this file.
     * @param other  a file that no other thread uses, or null
     */
    void replaceOutput(LogFile* other, const Limits& limits);
    /**
     * For a logger: exchanges the outputs of this file and `other`, which no other thread uses, if both have
     * the same path and `other` is still at it; the limits are unchanged. Otherwise returns false.
     */
    bool exchangeReopened(LogFile& other);
    /** For a logger: opens the file at `path`, which is not empty. Throws like getStream(). */
    void openAt(const String& path);
    /** For a logger: returns false if the output is a file that has been renamed or deleted. */
    bool isAtItsPath() const;
    /** For a logger: returns true if the output is an open file of this path. */
    bool isOpenAt(const String& path) const;
    /** For a logger: returns true if the output is this stream. */
    bool isSetTo(const std::ostream& stream) const;
    /** For a logger: has the reports of signal handlers be written to this file. */
    __attribute__((visibility("hidden"))) void publish() const;
    /** For a logger: opens a file that is not open yet, as getStream() does, without a stream. */
    void open() const;
    /** Returns the output of a file that no other thread uses. */
    __attribute__((visibility("hidden"))) LogOutput& ownOutput();

    const std::unique_ptr<LogOutput> output DALNIM_PT_GUARDED_BY(stateSync);
    /** Acquired after Write's lock, never before it. */
    mt::CriticalSection stateSync;
    /** Has fork() hold stateSync. Destroyed first. */
    std::unique_ptr<ForkEntry> forkEntry;
};

/** A reference-counting reference to a log file. */
typedef mem::RcoRef<LogFile> LogFileRef;

}

#endif
