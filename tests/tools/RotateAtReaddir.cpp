/**
 * Loaded in front of the C library, so that a rotation of a log that is half done goes on while its folder is
 * read, and the folder shows the file that moves under neither name. It does once a program has looked for
 * "<log>.1" in vain, if a file "<log>.arm" exists: "<log>.0" becomes "<log>.1" then.
 */

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/** Of the log whose rotation is to go on; empty when none is. */
std::string waitingLog;
/** The reading that does not show its files. */
DIR* blindReading = nullptr;
std::string hiddenBegin;

bool endsIn(const std::string& text, const char* end)
{
    const std::size_t size = std::strlen(end);
    return text.size() > size && text.compare(text.size() - size, size, end) == 0;
}

bool isHidden(DIR* reading, const char* name)
{
    return reading == blindReading && (name == hiddenBegin + ".0" || name == hiddenBegin + ".1");
}

}

extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...)
{
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    const int file = openat(AT_FDCWD, path, flags, mode);
    const std::string name = path;
    if (file == -1 && endsIn(name, ".1")) {
        const std::string log = name.substr(0, name.size() - 2);
        const int error = errno;
        if (unlink((log + ".arm").c_str()) == 0) {
            waitingLog = log;
        }
        errno = error;
    }
    return file;
}

extern "C" __attribute__((visibility("default"))) dirent* readdir(DIR* reading)
{
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (!waitingLog.empty()) {
        if (rename((waitingLog + ".0").c_str(), (waitingLog + ".1").c_str()) == -1) {
            _exit(99);
        }
        hiddenBegin = waitingLog.substr(waitingLog.rfind('/') + 1);
        blindReading = reading;
        waitingLog.clear();
    }
    dirent* entry = next(reading);
    while (entry != nullptr && isHidden(reading, entry->d_name)) {
        entry = next(reading);
    }
    if (entry == nullptr && reading == blindReading) {
        blindReading = nullptr;
    }
    return entry;
}
