#ifndef DALNIM_TOOLS_NIMLOG_READER_HPP
#define DALNIM_TOOLS_NIMLOG_READER_HPP

#include "ReadBytes.hpp"
#include "RecordSplitter.hpp"
#include "RotatedFiles.hpp"

#include <functional>
#include <string>

namespace nimlog {

/** Reads the files of a log into a splitter, in order, to the end or as they grow. */
class Reader
{
public:
    /** @param warnings called with messages for the user */
    Reader(const std::string& logPath, RecordSplitter& recordSplitter,
           std::function<void(const std::string&)> warnings);

    /**
     * Reads all files to their end.
     * @param idle called if standard input brings nothing for a while
     * @throws Failure if there is no such log, or a file cannot be read
     */
    void readAll(const std::function<void()>& idle);

    /** Reads all files, then follows the log until a signal arrives. `idle` is called before each wait. */
    void follow(const std::function<void()>& idle);

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
    void restartIfTruncated();

    const std::string path;
    RecordSplitter& splitter;
    const std::function<void(const std::string&)> warn;
    RotatedFiles files;
    /** Bytes of the current file. */
    ReadBytes readBytes;
    std::string leading;
    bool damaged = false;
};

}

#endif
