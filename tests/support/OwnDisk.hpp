#ifndef DALNIM_TESTS_SUPPORT_OWNDISK_HPP
#define DALNIM_TESTS_SUPPORT_OWNDISK_HPP

#include "Files.hpp"
#include "InChildProcess.hpp"

#include <cerrno>
#include <filesystem>
#include <string>

#include <sched.h>
#include <sys/mount.h>

namespace support {

/**
 * Mounts a disk over a directory, for this process and its children only. Returns false, with `errno` set, if
 * this process lacks the permission.
 * @param size as in "size=64k"
 */
inline bool mountOwnDisk(const std::string& directory, const std::string& size)
{
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0
           && ::mount("none", directory.c_str(), "tmpfs", 0, size.c_str()) == 0;
}

/** Returns the error number with which mounting a disk over this directory fails, or 0. */
inline int ownDiskError(const std::string& directory)
{
    return WEXITSTATUS(
        inChildProcess([&directory] { ::_exit(mountOwnDisk(directory, "size=64k") ? 0 : errno); }));
}

/** Fills the disk, except for some bytes, with a file of this name. */
inline void fillDisk(const std::string& ballast, std::size_t left)
{
    const std::filesystem::path directory = std::filesystem::path(ballast).parent_path();
    writeFile(ballast, std::string(std::filesystem::space(directory).available - left, 'b'));
}

}

#endif
