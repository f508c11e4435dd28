/**
 * A preloaded library that rotates and compresses a log, as logrotate does, while a program searches its
 * files. The environment variables ROTATE_LOG and ROTATE_CALL are the path of the log and the number of the
 * call of stat(), open() or readdir() before which the files are renamed. COMPRESS_CALL is the number of the
 * one before which the compressed file "<log>.ready" gets its name, and its original is removed. Afterwards,
 * the file
 * "<log>.done" exists.
 */

#include <cstdarg>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

long number(const char* variable)
{
    return std::strtol(std::getenv(variable), nullptr, 10);
}

void move(const std::string& from, const std::string& to)
{
    if (rename(from.c_str(), to.c_str()) == -1) {
        _exit(99);
    }
}

void beforeCall()
{
    static const std::string log = std::getenv("ROTATE_LOG");
    static const long rotateCall = number("ROTATE_CALL");
    static const long compressCall = number("COMPRESS_CALL");
    static long calls = 0;
    ++calls;
    static bool hasRotated = false;
    // Not in a program that the first one starts.
    if (calls == rotateCall && unlink((log + ".arm").c_str()) == 0) {
        hasRotated = true;
        move(log + ".2.gz", log + ".3.gz");
        move(log + ".1.gz", log + ".2.gz");
        move(log, log + ".1");
        close(openat(AT_FDCWD, log.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    if (calls == compressCall && hasRotated) {
        move(log + ".ready", log + ".1.gz");
        if (unlink((log + ".1").c_str()) == -1) {
            _exit(99);
        }
    }
}

}

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    beforeCall();
    return openat(AT_FDCWD, path, flags, mode);
}

extern "C" __attribute__((visibility("default"))) int stat(const char* path, struct stat* status) noexcept
{
    beforeCall();
    return fstatat(AT_FDCWD, path, status, 0);
}

extern "C" __attribute__((visibility("default"))) dirent* readdir(DIR* reading)
{
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    // The first call reads the names of a short directory.
    static DIR* current = nullptr;
    if (reading != current) {
        beforeCall();
    }
    dirent* const entry = next(reading);
    current = entry == nullptr ? nullptr : reading;
    return entry;
}
