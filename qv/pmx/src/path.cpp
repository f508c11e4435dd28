#include <qv/pmx/path.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

qv_err_t qv_si_isdir(const char* path) noexcept
{
    if (path == nullptr) {
        return EINVAL;
    }
    struct stat status;
    if (stat(path, &status) == 0) {
        return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    }
    // A component of the directory is a file. ENOTDIR would mean that the path itself names a file.
    return errno == ENOTDIR ? ENOENT : errno;
}

qv_err_t qv_si_getrealpath(const char* path, size_t size, char* buffer) noexcept
{
    if (path == nullptr || buffer == nullptr || size == 0) {
        return EINVAL;
    }
    buffer[0] = '\0';

    // realpath() requires a buffer of this size, however short the result.
    char resolved[PATH_MAX];
    if (realpath(path, resolved) == nullptr) {
        return errno;
    }
    const size_t length = std::strlen(resolved);
    if (length < size) {
        std::memcpy(buffer, resolved, length + 1);
        return 0;
    }
    std::memcpy(buffer, resolved, size - 1);
    buffer[size - 1] = '\0';
    return ERANGE;
}
