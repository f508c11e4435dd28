#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RotatedFiles.hpp>

#include <dalnim/log/src/FileTrace.hpp>
#include <dalnim/sys/SysError.hpp>
#include <qv/rtlapi/RX_Filespec.hpp>
#include <qv/rtlapi/RX_FilespecIterator.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

DALNIM_USES_RTLAPI

namespace com::kor::dal::nim::log {

namespace {

sys::system_error moveFailure(int error)
{
    return sys::system_error(error, "Failed to move old log files: " + sys::sys_err_string(error));
}

bool exists(const String& name)
{
    struct stat status;
    return ::lstat(name.c_str(), &status) == 0 || errno != ENOENT;
}

/** Renames a file unless the new name exists. Returns 0 or the error number, EEXIST in that case. */
int renameToNew(const char* from, const char* to)
{
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS && errno != EPERM) {
        return errno;
    }
    // Some file systems (such as NFS), old kernels and some containers do not support the flag. A process
    // that is killed between the two calls leaves one file with two names, which findGap() repairs.
    if (::link(from, to) == 0) {
        return ::unlink(from) == 0 ? 0 : errno;
    }
    if (errno == EEXIST || errno == ENOENT) {
        return errno;
    }
    // The file system does not support hard links, or `from` is a directory.
    if (exists(to)) {
        return EEXIST;
    }
    return std::rename(from, to) == 0 ? 0 : errno;
}

}

String RotatedFiles::nameOf(std::size_t number) const
{
    return livePath + '.' + std::to_string(number);
}

std::size_t RotatedFiles::count() const
{
    // The path is quoted; only the number after it is a pattern.
    RX_String pattern =
        RX_Filespec(RX_String(livePath.data(), livePath.size()), RX_Filespec::DONTCARE, 0).quoted();
    pattern += RX_String(".<->", RX_String::NPOS);
    RX_FilespecIterator files(RX_Filespec(pattern, RX_Filespec::DONTCARE, 1), 1);
    std::size_t number = 0;
    while (files.next() != 0) {
        ++number;
        const RX_String& name = files.filespec();
        FileTrace::print(__LINE__, "countLogFiles", "Found file [",
                         std::string_view(name.data(), name.length()), "]");
    }
    const qv_err_t error = files.status();
    // A missing directory is created with the log file.
    if (error != 0 && error != ENOENT && error != ENOTDIR) {
        FileTrace::print<Severity_WARNING>(__LINE__, "countLogFiles", "Failed to read the directory of [",
                                           livePath, "]: ", sys::sys_err_string(error));
        number = std::max(number, countUpToGap());
    }
    return number;
}

std::size_t RotatedFiles::countUpToGap() const
{
    struct stat status;
    std::size_t number = 0;
    while (::lstat(nameOf(number).c_str(), &status) == 0) {
        ++number;
    }
    return number;
}

void RotatedFiles::remove(std::size_t first, std::size_t last) const
{
    for (std::size_t number = first; number <= last; ++number) {
        const String name = nameOf(number);
        FileTrace::print(__LINE__, "removeFiles", "Removing file [", name, "] ...");
        if (std::remove(name.c_str()) == -1) {
            FileTrace::print<Severity_WARNING>(__LINE__, "removeFiles", "Could not remove file [", name, "]");
        }
    }
}

std::size_t RotatedFiles::rotate(std::size_t number, std::size_t maximum) const
{
    if (maximum == 0 || number < maximum) {
        ++number;
    } else {
        const String oldest = nameOf(number - 1);
        FileTrace::print(__LINE__, "switchFile", "Removing [", oldest, "]");
        if (std::remove(oldest.c_str()) == -1) {
            const int error = errno;
            FileTrace::print<Severity_WARNING>(__LINE__, "switchFile", "Failed to remove [", oldest,
                                               "]: ", sys::sys_err_string(error));
        }
    }
    // Another process may be rotating the same path, and fill the gap first.
    constexpr int MOST_ATTEMPTS = 10;
    int error = EEXIST;
    for (int attempt = 0; error == EEXIST && attempt < MOST_ATTEMPTS; ++attempt) {
        error = shiftUpTo(findGap());
        if (error == 0) {
            error = move(livePath, nameOf(0));
        }
    }
    if (error != 0) {
        throw moveFailure(error);
    }
    return number;
}

/**
 * Returns the first number without a file. Throws sys::system_error if the directory cannot be searched.
 */
std::size_t RotatedFiles::findGap() const
{
    struct stat newer;
    bool hasNewer = ::lstat(livePath.c_str(), &newer) == 0;
    String newerName;
    for (std::size_t number = 0;; ++number) {
        String name = nameOf(number);
        struct stat status;
        if (::lstat(name.c_str(), &status) == -1) {
            if (errno == ENOENT) {
                return number;
            }
            throw moveFailure(errno);
        }
        if (hasNewer && status.st_ino == newer.st_ino && status.st_dev == newer.st_dev) {
            // One file with two names: a process was killed in renameToNew().
            const bool isLive = number == 0;
            if (::unlink((isLive ? name : newerName).c_str()) == 0) {
                return isLive ? 0 : number - 1;
            }
        }
        newer = status;
        hasNewer = true;
        newerName = std::move(name);
    }
}

/**
 * Increments the number of each file below `gap`. Returns 0 or the error number of the rename that failed.
 */
int RotatedFiles::shiftUpTo(std::size_t gap) const
{
    for (std::size_t number = gap; number >= 1; --number) {
        const int error = move(nameOf(number - 1), nameOf(number));
        // ENOENT: another process has renamed or removed the file.
        if (error != 0 && error != ENOENT) {
            return error;
        }
    }
    return 0;
}

int RotatedFiles::move(const String& from, const String& to) const
{
    FileTrace::print(__LINE__, "switchFile", "Moving [", from, "] to [", to, "]");
    return renameToNew(from.c_str(), to.c_str());
}

}
