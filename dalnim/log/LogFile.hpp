#ifndef DALNIM_LOG_LOGFILE_HPP
#define DALNIM_LOG_LOGFILE_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <ios>
#include <memory>
#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::log {

class ForkEntry;
class LogOutput;

/**
 * The end of the record path: a file of its own, opened at the first line and rotated by size, or a
 * stream that the caller owns. A line that the output rejects is written to standard error.
 *
 * The rotated files of a path P are P ".0" (the newest), P ".1" and so on. A rotation never replaces a file
 * that exists; a missing number is filled by the next rotation. Only regular files are rotated, also behind a
 * link. The diagnostics of rotation are written to standard error, never to the log.
 *
 * A line begins at the beginning of a line: if the file ends inside one, because a process was killed or the
 * disk was full, a newline comes first.
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

    /** The configured path; empty when the output is not a file of this object. */
    virtual String getPath() const;
    /**
     * Closes the present output and takes a path, whose old files are counted. The file is opened
     * by the first line. An empty path leaves standard error.
     */
    virtual void setPath(const String& path);
    /**
     * Opens the output if it is not open, and returns its stream, which is owned by this object or by
     * the caller of setStream(). That of a file is a `std::ofstream` without a buffer, on a descriptor of its
     * own; it follows a rotation, and its state has no effect on the lines of the log. If no descriptor is
     * available for it, it is not open, and the next call tries again.
     *
     * Throws sys::system_error if the file cannot be opened. If it may not be created (13, `EACCES`) or if
     * the open itself fails (its `errno`), the path is cleared. Any other number is a failure of the check
     * before the open; the path is kept.
     */
    virtual std::ostream* getStream() const;
    /**
     * Closes the present output and writes to `stream`, which stays the caller's. Throws
     * `std::invalid_argument`, "Supplied std::ios is not a std::ostream."
     */
    virtual void setStream(std::ios& stream);
    /** Bytes after which the file is rotated, 0 for never. */
    virtual std::size_t getMaxFileSize() const;
    /**
     * Takes effect at the next line. A file may exceed the limit by one line, and by a thousandth of
     * the limit where others than this object append to the file for the first time.
     */
    virtual void setMaxFileSize(std::size_t size);
    /** How many old files are kept, 0 for all. */
    virtual std::size_t getMaxNumberOfFiles() const;
    /** Removes at once what exceeds the number. */
    virtual void setMaxNumberOfFiles(std::size_t number);
    /** Returns the permissions of new files, or Control::MODE_OF_UMASK; see Control::setFileMode(). */
    unsigned int getFileMode() const;
    /** Takes effect at the next file that is created. */
    void setFileMode(unsigned int mode);
    /** Returns true if there is a stream in a good state, or a file that the last line was written to. */
    virtual bool is_open() const;
    /** Whether there is a stream, and, with a path, the file is open. */
    virtual bool is_valid() const;
    /** Whether the stream belongs to somebody else. */
    virtual bool is_reserved() const;
    /**
     * Writes one line, without the trailing white space of `msg`, if possible by one system call; then
     * rotates the file if it has reached its size. A line that the output rejects is written to standard
     * error after an error message, and the next one tries the same output again, also if a stream throws.
     * Throws as getStream() does.
     */
    virtual void log(const String& msg);
    /**
     * The name of the output for a reader: the path, a standard stream's name, "<not set>" or
     * "<user assigned stream>". With `deep` the text shares nothing with this object.
     */
    virtual void getCurrentPath(String& path, bool deep = false) const;
    /** Closes the output and forgets the path; limits stay. */
    virtual void close() const;
    /** Closes the output and goes back to standard error; false when it was there already. */
    virtual bool revertStream() const;

private:
    friend class Write;

    /** log() of a line that is trimmed and ends in a newline. */
    void logLine(std::string_view line);
    /** For a logger: writes a text before its lines. Returns false if the output rejects it. */
    bool begin(const String& text) const;
    /** What a logger sets together with the output. */
    struct Limits
    {
        unsigned int fileMode;
        std::size_t maxFileSize;
        std::size_t maxNumberOfFiles;
    };

    /**
     * For a logger: sets the limits, and exchanges the outputs of this file and `other`, which no other
     * thread has, or keeps the output if that is null. One step to those who share this file: no line is
     * written by the limits of the other output.
     */
    void replaceOutput(LogFile* other, const Limits& limits);
    /**
     * For a logger: exchanges the outputs of this file and `other`, which no other thread has, if both have
     * one path and `other` is at it; the limits stay. Returns false, and does nothing, otherwise.
     */
    bool exchangeReopened(LogFile& other);
    /** For a logger: opens the file at `path`, which is not empty. Throws as getStream() does. */
    void openAt(const String& path);
    /** For a logger: returns false if the output is a file that was renamed or removed since it was opened.
     */
    bool isAtItsPath() const;
    /** For a logger: returns true if the output is a file of this path, open. */
    bool isOpenAt(const String& path) const;
    /** For a logger: returns true if the output is this stream. */
    bool isSetTo(const std::ostream& stream) const;
    /** For a logger: opens a file that is not open yet, as getStream() does, without a stream. */
    void open() const;

    const std::unique_ptr<LogOutput> output;
    /** Guards `output`. Acquired after Write's lock, never before it. */
    mt::CriticalSection stateSync;
    /** Has fork() hold stateSync. Destroyed first. */
    std::unique_ptr<ForkEntry> forkEntry;
};

/** A reference-counting reference to a log file. */
typedef mem::RcoRef<LogFile> LogFileRef;

}

#endif
