/**
 * A preloaded library that continues a rotation while a program reads the directory of the log, and shows the
 * renamed file under neither name. It is triggered when the program fails to open "<log>.1" and a file
 * "<log>.arm" exists; "<log>.0" is then renamed to "<log>.1".
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

/** Path of the log whose rotation continues at the next readdir(), or empty. */
std::string pendingLog;
/** The directory stream that omits the renamed file. */
DIR* affectedStream = nullptr;
std::string hiddenPrefix;

bool endsIn(const std::string& text, const char* end)
{
    const std::size_t size = std::strlen(end);
    return text.size() > size && text.compare(text.size() - size, size, end) == 0;
}

bool isHidden(DIR* reading, const char* name)
{
    return reading == affectedStream && (name == hiddenPrefix + ".0" || name == hiddenPrefix + ".1");
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
            pendingLog = log;
        }
        errno = error;
    }
    return file;
}

extern "C" __attribute__((visibility("default"))) dirent* readdir(DIR* reading)
{
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (!pendingLog.empty()) {
        if (rename((pendingLog + ".0").c_str(), (pendingLog + ".1").c_str()) == -1) {
            _exit(99);
        }
        hiddenPrefix = pendingLog.substr(pendingLog.rfind('/') + 1);
        affectedStream = reading;
        pendingLog.clear();
    }
    dirent* entry = next(reading);
    while (entry != nullptr && isHidden(reading, entry->d_name)) {
        entry = next(reading);
    }
    if (entry == nullptr && reading == affectedStream) {
        affectedStream = nullptr;
    }
    return entry;
}
