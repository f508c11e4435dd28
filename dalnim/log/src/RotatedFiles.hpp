#ifndef DALNIM_LOG_SRC_ROTATEDFILES_HPP
#define DALNIM_LOG_SRC_ROTATEDFILES_HPP

#include <dalnim/String.hpp>

#include <cstddef>

namespace com::kor::dal::nim::log {

/**
 * The rotated files of a log with the path P: P ".0" (the newest), P ".1" and so on.
 *
 * No operation replaces an existing file, even if another process has created it, or if this process is
 * killed at any point. The next rotation fills a missing number.
 *
 * Each step is traced to standard error. Not thread-safe: the owner of the log file holds its lock.
 */
class RotatedFiles
{
public:
    /** @param path  the path of the log file; must outlive the object */
    explicit RotatedFiles(const String& path) : livePath(path) {}

    /**
     * Returns the number of rotated files, including files after a missing number. If the directory cannot be
     * read, returns the number of files before the first missing number.
     */
    std::size_t count() const;

    /** Removes the files numbered `first` to `last`. Continues after a file that cannot be removed. */
    void remove(std::size_t first, std::size_t last) const;

    /**
     * Renames P to P ".0", after the files below the first missing number have been renamed to the next
     * number. If `maximum` files exist, the oldest is removed first.
     *
     * @param number   the number of rotated files
     * @param maximum  the maximum number of rotated files; 0 for no limit
     * @return the number of rotated files afterwards
     * @throws sys::system_error  "Failed to move old log files: ..." if a file cannot be renamed
     */
    std::size_t rotate(std::size_t number, std::size_t maximum) const;

private:
    String nameOf(std::size_t number) const;
    std::size_t countUpToGap() const;
    std::size_t findGap() const;
    int shiftUpTo(std::size_t gap) const;
    int move(const String& from, const String& to) const;

    const String& livePath;
};

}

#endif
