#ifndef DALNIM_TOOLS_NIMLOG_ROTATEDFILES_HPP
#define DALNIM_TOOLS_NIMLOG_ROTATEDFILES_HPP

#include "Decompressor.hpp"
#include "RotatedName.hpp"

#include <support/Descriptor.hpp>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace nimlog {

/**
 * The files of a log P in the order in which they were written, even if the log rotates them at the same
 * time: P is the live file, P.0 the previous one, then P.1 and so on, then those with a date in their names,
 * such as P-20261114. Files are identified by inode, not by name.
 *
 * Compressed files, such as P.3.gz, are searched once, by the first scan(): later ones are copies of files
 * that are known.
 */
class RotatedFiles
{
public:
    /**
     * @param path     path of the log, which may be a compressed file, or "-" for standard input
     * @param warnings called with a message for each file that is skipped
     */
    RotatedFiles(const std::string& path, std::function<void(const std::string&)> warnings);

    /**
     * Searches for files that are newer than all known ones, and queues them for next().
     * @throws Failure if a file cannot be opened
     */
    void scan();

    /**
     * Makes the next newer file the current one. Returns false if there is none.
     * @throws Failure if it is compressed, and its program cannot be started
     */
    bool next();
    bool hasNext() const
    {
        return !pending.empty() || !archives.empty();
    }

    /** Returns the descriptor to read the current file from. Requires hasCurrent(). */
    int current() const
    {
        return decompressor ? decompressor->output() : seen.back().descriptor.get();
    }
    bool hasCurrent() const
    {
        return decompressor || !seen.empty();
    }
    /** Returns true if the current file is compressed, so that nothing is appended to it. */
    bool isCurrentCompressed() const
    {
        return decompressor != nullptr;
    }
    /** Returns the last known name of the current file. Requires hasCurrent(). */
    std::string currentName() const
    {
        return decompressor ? archiveName : nameOf(seen.back().index);
    }
    /**
     * Ends the current file, if it is compressed. Must be called after it was read to its end.
     * @throws Failure if it could not be decompressed
     */
    void finishCurrent();

    /**
     * Returns true if a known file was removed before a newer one was found: files between them may be
     * missing.
     */
    bool mayHaveMissed() const
    {
        return missed;
    }

private:
    typedef FileIndex Index;

    struct File
    {
        nimtools::Descriptor descriptor;
        dev_t device;
        ino_t inode;
        /** Last known index. Renames only increase it. */
        Index index;
    };
    /** A compressed file. */
    struct Archive
    {
        nimtools::Descriptor descriptor;
        std::string name;
        RotatedName meaning;
    };
    typedef std::map<std::string, RotatedName> ArchiveNames;
    enum Outcome { ADDED, NONE_NEWER, REMOVED };

    void scanFirst();
    ArchiveNames listArchives();
    bool areArchivesAt(const ArchiveNames& names);
    void addArchive(const std::string& name, const RotatedName& meaning);
    static bool isRemoved(const File& file);
    bool wasPendingRemoved() const;
    void forEachRotated(const std::function<void(const std::string&, const RotatedName&)>& function) const;
    bool addNewer();
    bool addOldest();
    Outcome addSuccessorOf(File& file);
    bool locate(File& file);
    bool hasNoFileBetween(Index low, Index high);
    bool isAt(const File& file, Index index) const;
    File openAt(Index index);
    bool isSkipped(Index index, const struct stat& status);
    void warnSkipped(const std::string& name, const struct stat& status);
    std::string nameOf(Index index) const;
    std::set<Index> indexes();
    void closeRemoved();

    const std::string path;
    const std::function<void(const std::string&)> warn;
    /** Files that were skipped, each with a warning. */
    std::set<std::pair<dev_t, ino_t>> skipped;
    /** Files returned by next(), oldest first. Kept open, so that their inodes are not reused. */
    std::vector<File> seen;
    /** Files found but not yet returned by next(), oldest first. */
    std::deque<File> pending;
    /** Compressed files not yet returned by next(), oldest first. */
    std::deque<Archive> archives;
    /** Decompresses the current file; null if that is not compressed. */
    std::unique_ptr<Decompressor> decompressor;
    std::string archiveName;
    /** Names of the files with dates in their names, as they were last found. */
    std::map<Index, std::string> datedNames;
    bool hasScanned = false;
    bool missed = false;
};

}

#endif
