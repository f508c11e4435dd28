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
    // Below a file there is nothing; ENOTDIR would tell that there is something.
    return errno == ENOTDIR ? ENOENT : errno;
}

qv_err_t qv_si_getrealpath(const char* path, size_t size, char* buffer) noexcept
{
    if (path == nullptr || buffer == nullptr || size == 0) {
        return EINVAL;
    }
    buffer[0] = '\0';

    // The system asks for this much room, however short the result.
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
