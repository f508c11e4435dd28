#ifndef DALNIM_LOG_LOGFILE_HPP
#define DALNIM_LOG_LOGFILE_HPP

#include <dalnim/String.hpp>
#include <dalnim/mem/RcoRef.hpp>
#include <dalnim/mt/CriticalSection.hpp>
#include <qv/pmx/api.h>

#include <cstddef>
#include <memory>
#include <ostream>
#include <string_view>

namespace com::kor::dal::nim::log {

class AppendFile;

/**
 * The end of the record path: a file of its own, opened at the first line and rotated by size, or a
 * stream that somebody else owns. What an output refuses goes to standard error.
 *
 * The old files of a path P are P ".0" (the newest), P ".1" and so on. The diagnostics of rotation
 * go to standard error, never to the log.
 *
 * Any thread may call any operation: a line and the rotation that it causes are one step to all
 * others. The stream that getStream() hands out is outside that protection. No operation calls back
 * into a logger.
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
     * The stream that lines go to, opened when it is not yet; owned by this object or by whoever
     * set it. That of a file is a `std::ofstream` without a buffer. Throws sys::system_error when
     * there is no opening the file: 13 when it may not be created, or what the opening itself fails
     * with, both of which forget the path; another number, which keeps it, when the check ahead of
     * the opening fails.
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
    /** Whether there is a stream in a good state. */
    virtual bool is_open() const;
    /** Whether there is a stream, and, with a path, the file is open. */
    virtual bool is_valid() const;
    /** Whether the stream belongs to somebody else. */
    virtual bool is_reserved() const;
    /**
     * Writes one line, without the trailing white space of `msg`, in one piece, and flushes it;
     * then rotates the file if it has reached its size. A line that the stream refuses stands on
     * standard error behind a complaint, and the next one tries the same stream again, also where
     * the stream raises its failures. Throws what getStream() throws.
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
    friend class ForkLock;
    friend class Write;

    /** log() of a line that is trimmed and has its newline. */
    void logLine(std::string_view line);
    /** For a logger: puts a text ahead of its lines, as log() would; false when the stream refuses it. */
    bool begin(const String& text) const;
    /** For a logger: opens a file that is not opened yet, as getStream() does, without handing it out. */
    void open() const;

    // All of these are called with stateSync held.
    /** Whether `stream`, the present one, has taken `line`. */
    bool unlockedTake(std::ostream& stream, std::string_view line) const;
    /** Whether `stream`, which has taken the line, has the size at which the file is switched. */
    bool hasReachedLimit(std::ostream& stream) const;
    std::ostream* unlockedGetStream() const;
    void unlockedOpen() const;
    void unlockedClose() const;
    void unlockedGetCurrentPath(String& path, bool deep) const;
    bool unlockedRevertStream() const;
    void checkCreatable() const;
    void countLogFiles();
    void removeFiles(std::size_t from, std::size_t to);
    void switchFile();
    void makeRoom();
    void shiftFiles();
    void move(const String& from, const String& to);
    String oldFile(std::size_t number) const;

    mutable String outputPath;
    /** Where lines go; null when the file is not opened yet, or there is no output. */
    mutable std::ostream* outputStream;
    /** The file that this object opened, which is outputStream then; null otherwise. */
    mutable std::unique_ptr<AppendFile> ownedOutStream;
    /** Bytes. */
    std::size_t maxFileSize;
    std::size_t maxFiles;
    /** How many old files exist. */
    std::size_t numFiles;
    /** Guards all of the above. Behind Write's lock, never before it. */
    mt::CriticalSection stateSync;
};

/** A counted reference to a log file. */
typedef mem::RcoRef<LogFile> LogFileRef;

}

#endif
