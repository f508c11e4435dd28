#ifndef DALNIM_TOOLS_NIMLOG_ROTATEDFILES_HPP
#define DALNIM_TOOLS_NIMLOG_ROTATEDFILES_HPP

#include <support/Descriptor.hpp>

#include <deque>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace nimlog {

/**
 * The files of a log in the order in which they were written, while the log goes on and moves them: P is
 * written now, P.0 was before it, then P.1 and so on. A file is known by its inode, not by its name.
 */
class RotatedFiles
{
public:
    /** @param path "-" for standard input alone */
    explicit RotatedFiles(const std::string& path);

    /**
     * Looks for files that are newer than all that have been seen; next() hands them out. Throws Failure
     * when one cannot be opened.
     */
    void look();

    /** Goes on to the next newer file; false if there is none. */
    bool next();
    bool hasNext() const
    {
        return !waiting.empty();
    }

    /** The file in hand; valid behind the first next(). */
    int current() const
    {
        return seen.back().descriptor.get();
    }
    bool hasCurrent() const
    {
        return !seen.empty();
    }

    /** Whether the file in hand was gone when a newer one was found: others between them may be, too. */
    bool mayHaveMissed() const
    {
        return missed;
    }

private:
    /** A place in the set: 0 is the live file's name, N + 1 that of the old file N. */
    typedef std::size_t Place;

    struct File
    {
        nimtools::Descriptor descriptor;
        dev_t device;
        ino_t inode;
        /** Where it was met last. From there it has moved up, if at all. */
        Place place;
    };
    enum Outcome { ADDED, NONE_NEWER, GONE };

    bool addNewer();
    bool addOldest();
    Outcome addNextTo(File& file);
    bool locate(File& file) const;
    bool isNothingBetween(Place low, Place high) const;
    bool isAt(const File& file, Place place) const;
    File openAt(Place place) const;
    std::string nameOf(Place place) const;
    std::set<Place> places() const;
    void forgetRemoved();

    const std::string path;
    /** Oldest first. They are kept open: so their inodes are not given to new files. */
    std::vector<File> seen;
    /** Oldest first. */
    std::deque<File> waiting;
    bool missed = false;
};

}

#endif
