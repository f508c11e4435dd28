#ifndef DALNIM_TOOLS_NIMLOG_ROTATEDFILES_HPP
#define DALNIM_TOOLS_NIMLOG_ROTATEDFILES_HPP

#include <support/Descriptor.hpp>

#include <deque>
#include <functional>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace nimlog {

/**
 * The files of a log P in the order in which they were written, even if the log rotates them at the same
 * time: P is the live file, P.0 the previous one, then P.1 and so on. Files are identified by inode, not by
 * name.
 */
class RotatedFiles
{
public:
    /**
     * @param path     path of the log, or "-" for standard input
     * @param warnings called with a message for each file that is skipped
     */
    RotatedFiles(const std::string& path, std::function<void(const std::string&)> warnings);

    /**
     * Searches for files that are newer than all known ones, and queues them for next().
     * @throws Failure if a file cannot be opened
     */
    void scan();

    /** Makes the next newer file the current one. Returns false if there is none. */
    bool next();
    bool hasNext() const
    {
        return !pending.empty();
    }

    /** Returns the descriptor of the current file. Requires hasCurrent(). */
    int current() const
    {
        return seen.back().descriptor.get();
    }
    bool hasCurrent() const
    {
        return !seen.empty();
    }
    /** Returns the last known name of the current file. Requires hasCurrent(). */
    std::string currentName() const
    {
        return nameOf(seen.back().index);
    }

    /**
     * Returns true if a known file was removed before a newer one was found: files between them may be
     * missing.
     */
    bool mayHaveMissed() const
    {
        return missed;
    }

private:
    /** Index of a file: 0 is the live file P, N + 1 is P.N. */
    typedef std::size_t Index;

    struct File
    {
        nimtools::Descriptor descriptor;
        dev_t device;
        ino_t inode;
        /** Last known index. Renames only increase it. */
        Index index;
    };
    enum Outcome { ADDED, NONE_NEWER, REMOVED };

    bool addNewer();
    bool addOldest();
    Outcome addSuccessorOf(File& file);
    bool locate(File& file) const;
    bool hasNoFileBetween(Index low, Index high) const;
    bool isAt(const File& file, Index index) const;
    File openAt(Index index);
    bool isSkipped(Index index, const struct stat& status);
    std::string nameOf(Index index) const;
    std::set<Index> indexes() const;
    void closeRemoved();

    const std::string path;
    const std::function<void(const std::string&)> warn;
    /** Files that were skipped, each with a warning. */
    std::set<std::pair<dev_t, ino_t>> skipped;
    /** Files returned by next(), oldest first. Kept open, so that their inodes are not reused. */
    std::vector<File> seen;
    /** Files found but not yet returned by next(), oldest first. */
    std::deque<File> pending;
    bool missed = false;
};

}

#endif
