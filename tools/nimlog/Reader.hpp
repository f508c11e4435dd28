#ifndef DALNIM_TOOLS_NIMLOG_READER_HPP
#define DALNIM_TOOLS_NIMLOG_READER_HPP

#include "ReadBytes.hpp"
#include "RecordSplitter.hpp"
#include "RotatedFiles.hpp"

#include <chrono>
#include <functional>
#include <string>

namespace nimlog {

/** Reads the files of a log into a splitter, in order, to the end or as they grow. */
class Reader
{
public:
    /** A record is considered complete if nothing follows it for this time. */
    static constexpr std::chrono::milliseconds IDLE_TIME{100};
    /** Maximum wait if no record is pending. */
    static constexpr std::chrono::milliseconds MAX_WAIT{10000};

    /** @param warnings called with messages for the user */
    Reader(const std::string& logPath, RecordSplitter& recordSplitter,
           std::function<void(const std::string&)> warnings);

    /**
     * Finds the files of the log. Must be called before readNext().
     * @throws Failure if there is no such log, or a file cannot be opened
     */
    void open();

    /**
     * Reads the next bytes. Returns false at the end of the last file.
     * @param idle called if standard input brings nothing for a while
     * @throws Failure if a file cannot be read
     */
    bool readNext(const std::function<void()>& idle);

    /**
     * Reads the next bytes, or advances to the next file, also after rotations. Returns false if there is
     * nothing new.
     * @throws Failure if a file cannot be read
     */
    bool followNext();

    /** Must be called before a wait for new bytes. Returns the maximum time to wait. */
    std::chrono::milliseconds prepareWait();
    /** Must be called after a wait for new bytes. */
    void restartIfTruncated();
    /** Ends the last line and the last record. */
    void endFollowing();

    /** Returns the name of the file that contains the first line before any record, or an empty string. */
    const std::string& leadingFile() const
    {
        return leading;
    }

    /** Returns true if a compressed file could not be read to its end. */
    bool hasDamagedFile() const
    {
        return damaged;
    }

private:
    bool nextFile();
    bool readChunk();
    void endFile();
    void endLine();
    void watchLeading();
    void waitForInput(const std::function<void()>& idle);
    bool isReplaced() const;

    const std::string path;
    RecordSplitter& splitter;
    const std::function<void(const std::string&)> warn;
    RotatedFiles files;
    /** Bytes of the current file. */
    ReadBytes readBytes;
    std::string leading;
    bool damaged = false;
    /** For readNext(): whether the current file has not been read to its end. */
    bool isReading = false;

    // For followNext().
    bool hasStarted = false;
    /** Whether nothing will be appended to the current file. */
    bool isComplete = false;
    bool hasWarned = false;
    std::chrono::steady_clock::time_point lastChunk;
};

}

#endif
