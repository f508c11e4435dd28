#include "Next.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

using faults::Call;
using faults::fails;

FAULTS_INTERPOSED int open(const char* path, int flags, ...)
{
    FAULTS_NEXT(open);
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return fails(Call::OPEN) ? -1 : next(path, flags, mode);
}

FAULTS_INTERPOSED FILE* fopen64(const char* path, const char* mode)
{
    FAULTS_NEXT(fopen64);
    return fails(Call::FOPEN) ? nullptr : next(path, mode);
}

FAULTS_INTERPOSED ssize_t write(int descriptor, const void* bytes, size_t count)
{
    FAULTS_NEXT(write);
    return fails(Call::WRITE) ? -1 : next(descriptor, bytes, count);
}

FAULTS_INTERPOSED ssize_t writev(int descriptor, const iovec* pieces, int count)
{
    FAULTS_NEXT(writev);
    return fails(Call::WRITE) ? -1 : next(descriptor, pieces, count);
}

FAULTS_INTERPOSED int rename(const char* from, const char* to) noexcept
{
    FAULTS_NEXT(rename);
    return fails(Call::RENAME) ? -1 : next(from, to);
}

FAULTS_INTERPOSED int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
                                unsigned int flags) noexcept
{
    FAULTS_NEXT(renameat2);
    return fails(Call::RENAME) ? -1 : next(fromDirectory, from, toDirectory, to, flags);
}

FAULTS_INTERPOSED int remove(const char* path) noexcept
{
    FAULTS_NEXT(remove);
    return fails(Call::REMOVE) ? -1 : next(path);
}

FAULTS_INTERPOSED int unlink(const char* path) noexcept
{
    FAULTS_NEXT(unlink);
    return fails(Call::REMOVE) ? -1 : next(path);
}

FAULTS_INTERPOSED int mkdir(const char* path, mode_t mode) noexcept
{
    FAULTS_NEXT(mkdir);
    return fails(Call::MKDIR) ? -1 : next(path, mode);
}

FAULTS_INTERPOSED DIR* opendir(const char* path)
{
    FAULTS_NEXT(opendir);
    return fails(Call::OPENDIR) ? nullptr : next(path);
}

FAULTS_INTERPOSED dirent* readdir(DIR* directory)
{
    FAULTS_NEXT(readdir);
    return fails(Call::READDIR) ? nullptr : next(directory);
}

FAULTS_INTERPOSED int stat(const char* path, struct stat* status) noexcept
{
    typedef int (*Stat)(const char*, struct stat*);
    static std::atomic<void*> known{nullptr};
    const auto next = reinterpret_cast<Stat>(faults::nextOf(known, "stat"));
    return fails(Call::STAT) ? -1 : next(path, status);
}

FAULTS_INTERPOSED int lstat(const char* path, struct stat* status) noexcept
{
    FAULTS_NEXT(lstat);
    return fails(Call::STAT) ? -1 : next(path, status);
}

FAULTS_INTERPOSED int access(const char* path, int mode) noexcept
{
    FAULTS_NEXT(access);
    return fails(Call::ACCESS) ? -1 : next(path, mode);
}

FAULTS_INTERPOSED int faccessat(int directory, const char* path, int mode, int flags) noexcept
{
    FAULTS_NEXT(faccessat);
    return fails(Call::ACCESS) ? -1 : next(directory, path, mode, flags);
}

FAULTS_INTERPOSED ssize_t readlink(const char* path, char* buffer, size_t size) noexcept
{
    FAULTS_NEXT(readlink);
    return fails(Call::READLINK) ? -1 : next(path, buffer, size);
}

FAULTS_INTERPOSED char* realpath(const char* path, char* resolved) noexcept
{
    FAULTS_NEXT(realpath);
    return fails(Call::REALPATH) ? nullptr : next(path, resolved);
}

/** Hardened builds call this instead of realpath() if the size of the buffer is known. */
FAULTS_INTERPOSED char* __realpath_chk(const char* path, char* resolved, size_t size) noexcept
{
    FAULTS_NEXT(__realpath_chk);
    return fails(Call::REALPATH) ? nullptr : next(path, resolved, size);
}

FAULTS_INTERPOSED char* getcwd(char* buffer, size_t size) noexcept
{
    FAULTS_NEXT(getcwd);
    return fails(Call::GETCWD) ? nullptr : next(buffer, size);
}
