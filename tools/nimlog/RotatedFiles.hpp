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
 * The files of a log in the order in which they were written, while the log goes on and moves them: P is
 * written now, P.0 was before it, then P.1 and so on. A file is known by its inode, not by its name.
 */
class RotatedFiles
{
public:
    /**
     * @param path     "-" for standard input alone
     * @param warnings takes a message for each file that is skipped
     */
    RotatedFiles(const std::string& path, std::function<void(const std::string&)> warnings);

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
    /** The name under which it was found last; valid under the same condition. */
    std::string currentName() const
    {
        return nameOf(seen.back().place);
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
    File openAt(Place place);
    bool isSkipped(Place place, const struct stat& status);
    std::string nameOf(Place place) const;
    std::set<Place> places() const;
    void forgetRemoved();

    const std::string path;
    const std::function<void(const std::string&)> warn;
    /** The files that were skipped, with a warning for each. */
    std::set<std::pair<dev_t, ino_t>> skipped;
    /** Oldest first. They are kept open: so their inodes are not given to new files. */
    std::vector<File> seen;
    /** Oldest first. */
    std::deque<File> waiting;
    bool missed = false;
};

}

#endif
