#ifndef DALNIM_LOG_SRC_ROTATEDFILES_HPP
#define DALNIM_LOG_SRC_ROTATEDFILES_HPP

#include <dalnim/String.hpp>

#include <cstddef>

namespace com::kor::dal::nim::log {

/**
 * The rotated files of a log at the path P: P ".0" (the newest), P ".1" and so on.
 *
 * No operation replaces a file that exists, whichever process made it and whenever this one is killed. A
 * number that is missing is filled by the next rotation.
 *
 * Each step is traced to standard error. One thread at a time uses an object.
 */
class RotatedFiles
{
public:
    /** @param path is kept by reference */
    explicit RotatedFiles(const String& path) : livePath(path) {}

    /**
     * Returns how many rotated files exist, with whatever numbers. In a directory that cannot be read these
     * are the ones from P ".0" up to the first that is missing.
     */
    std::size_t count() const;

    /** Removes the files with these numbers, both included, as far as possible. */
    void remove(std::size_t first, std::size_t last) const;

    /**
     * Makes room and renames P to P ".0": if `maximum` files exist, the oldest is removed; then the files
     * below the first missing number move up by one. Returns how many files exist now.
     *
     * @param number of rotated files that exist
     * @param maximum of rotated files that may exist; 0 for no limit
     *
     * Throws sys::system_error, "Failed to move old log files: ..." if a file cannot be renamed.
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
