#include <dalnim/dalbase.hpp>

#include <dalnim/io/FsOps.hpp>

#include <dalnim/sys/StackTrack.hpp>
#include <dalnim/sys/SysError.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <qv/pmx/path.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <vector>

DALNIM_USES_PATH_TABLES

namespace com::kor::dal::nim::io {

namespace {

/** The runtime's code for a path that was resolved with a warning: the result is in the buffer. */
constexpr qv_err_t RESOLVED_WITH_REMARK = 882164500;

constexpr std::size_t PATH_BUFFER_SIZE = 4096;

[[noreturn]] void resolve_error(const String& path, int err)
{
    throw sys::system_error(err, "Error resolving '" + path + "': " + sys::sys_err_string(err));
}

/** Throws ENOENT: no file has such a name. The message contains "\0" for each zero byte, which would end it.
 */
[[noreturn]] void zero_byte_error(String path)
{
    for (std::size_t at = 0; (at = path.find('\0', at)) != String::npos;) {
        path.replace(at, 1, "\\0");
    }
    resolve_error(path, ENOENT);
}

void get_real_path(const char* path, std::size_t size, char* buffer)
{
    const qv_err_t rc = qv_si_getrealpath(path, size, buffer);
    if (rc != 0 && rc != RESOLVED_WITH_REMARK) {
        resolve_error(path, rc);
    }
}

String with_slashes(const char* resolved, std::size_t length)
{
    String result(resolved, length);
    std::replace(result.begin(), result.end(), '\\', '/');
    return result;
}

String full_path(const char* path)
{
    char buffer[PATH_BUFFER_SIZE] = "";
    get_real_path(path, sizeof buffer, buffer);

    const std::size_t length = strnlen(buffer, sizeof buffer);
    if (length < sizeof buffer) {
        return with_slashes(buffer, length);
    }
    std::vector<char> larger(length + 1);
    get_real_path(path, larger.size(), larger.data());
    return with_slashes(larger.data(), strnlen(larger.data(), larger.size()));
}

/** Resolves the first `plen` bytes of `path`, after which it has a zero byte; 0 means up to the first one. */
String full_path_of_part(const char* path, std::size_t plen)
{
    std::size_t offset = 0;
    std::size_t length = 0;
    if (!sys::internal::find_path_substring(offset, length, path, plen)) {
        throw std::invalid_argument("Specified path is nil.");
    }
    if (std::memchr(path + offset, '\0', length) != nullptr) {
        zero_byte_error(String(path + offset, length));
    }
    const bool whole = offset == 0 && path[length] == '\0';
    return whole ? full_path(path) : full_path(String(path + offset, length).c_str());
}

}

String fullPath(const char* path)
{
    const sys::StackTrack track("fullPath()", NAMESPACE_NAME, __LINE__);
    return full_path_of_part(path, 0);
}

String fullPath(const String& path)
{
    const sys::StackTrack track("fullPath()", NAMESPACE_NAME, __LINE__);
    return full_path_of_part(path.c_str(), path.length());
}

}
