/**
 * A preloaded library that rotates a log at the moment when a program calls stat() with its name: if a file
 * "<log>.arm" exists, one more line is written to the log, which is then renamed and created again.
 */

#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void append(const std::string& path, const char* line)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file == -1 || write(file, line, std::strlen(line)) == -1) {
        _exit(99);
    }
    close(file);
}

}

extern "C" __attribute__((visibility("default"))) int stat(const char* path, struct stat* status) noexcept
{
    const std::string log = path;
    if (unlink((log + ".arm").c_str()) == 0) {
        append(log, "INFO : late\n");
        if (rename(path, (log + ".0").c_str()) == -1) {
            _exit(99);
        }
        append(log, "INFO : next\n");
    }
    return fstatat(AT_FDCWD, path, status, 0);
}
