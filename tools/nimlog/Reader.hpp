#ifndef DALNIM_TOOLS_NIMLOG_READER_HPP
#define DALNIM_TOOLS_NIMLOG_READER_HPP

#include "ReadBytes.hpp"
#include "RecordSplitter.hpp"
#include "RotatedFiles.hpp"

#include <functional>
#include <string>

namespace nimlog {

/** Reads the files of a log into a splitter, one after the other, to the end or as they grow. */
class Reader
{
public:
    /** @param complaints takes what the user ought to know */
    Reader(const std::string& logPath, RecordSplitter& recordSplitter,
           std::function<void(const std::string&)> complaints);

    /**
     * Reads what there is. Throws Failure, also when there is no such log.
     * @param idle is called when nothing comes from standard input for a while
     */
    void readAll(const std::function<void()>& idle);

    /** Reads what there is and what comes, until a signal. `idle` as above. */
    void follow(const std::function<void()>& idle);

    /** The file with the first line in front of all records; empty if there is none. */
    const std::string& leadingFile() const
    {
        return leading;
    }

private:
    bool goOn();
    bool readPiece();
    void endFile();
    void watchLeading();
    void awaitPiece(const std::function<void()>& idle);
    bool isReplaced() const;
    void startAgainIfCut();

    const std::string path;
    RecordSplitter& splitter;
    const std::function<void(const std::string&)> complain;
    RotatedFiles files;
    /** Of the current file. */
    ReadBytes readBytes;
    std::string leading;
};

}

#endif
