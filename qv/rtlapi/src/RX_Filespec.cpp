#include <qv/rtlapi/RX_Filespec.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <qv/rtlapi/RX_ExError.hpp>
#include <qv/rtlapi/RX_ExWarning.hpp>
#include <qv/rtlapi/RX_Wildcard.hpp>

namespace {

// As many links as the kernel follows in one name (path_resolution(7)).
const int MAX_LINKS = 40;

std::size_t baseOffset(const char* path, std::size_t length)
{
    const void* const slash = ::memrchr(path, '/', length);
    return slash == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(slash) - path) + 1;
}

std::string directoryOf(const std::string& path)
{
    return path.substr(0, baseOffset(path.data(), path.size()));
}

/** Checks rights of the effective user; an empty path is the working directory. Returns an errno value. */
qv_err_t accessStatus(const std::string& path, int mode)
{
    const char* const name = path.empty() ? "." : path.c_str();
    if (::faccessat(AT_FDCWD, name, mode, AT_EACCESS) == 0) {
        return 0;
    }
    if (errno != EPERM || ::geteuid() != ::getuid() || ::getegid() != ::getgid()) {
        return errno;
    }
    // Some containers forbid the system call that faccessat() makes. That of access() checks the rights of
    // the real user, which is the same here.
    return ::access(name, mode) == 0 ? 0 : errno;
}

/** Replaces a symbolic link by its target. Returns false if `path` is not a symbolic link. */
bool followLink(std::string& path)
{
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length <= 0) {
        return false;
    }
    path = target[0] == '/' ? std::string() : directoryOf(path);
    path.append(target, static_cast<std::size_t>(length));
    return true;
}

/** Returns the error of opening a name that ends in a slash for writing. */
qv_err_t directoryNameStatus(const std::string& path)
{
    const std::size_t last = path.find_last_not_of('/');
    const std::string name = path.substr(0, last == std::string::npos ? 0 : last + 1);
    const qv_err_t status = accessStatus(directoryOf(name), X_OK);
    return status == 0 ? EISDIR : status;
}

/**
 * Returns the error of open(path, O_WRONLY | O_APPEND | O_CREAT), or 0, without opening the file. Opening it
 * could create the file, rewind a tape or wake the reader of a pipe, and closing it would release the locks
 * that the process holds on the file.
 */
qv_err_t createStatus(std::string path)
{
    for (int links = 0; links <= MAX_LINKS; ++links) {
        struct stat info;
        const qv_err_t status = ::stat(path.c_str(), &info) == 0 ? 0 : errno;
        if (status == 0) {
            const qv_err_t access = S_ISDIR(info.st_mode) ? EISDIR : accessStatus(path, W_OK);
            if (access != ENOENT) {
                return access;
            }
            // Renamed after stat(), by the rotation of a log for example. Look it up again.
            continue;
        }
        // ENAMETOOLONG takes precedence over a trailing slash.
        if (path.back() == '/' && status != ENAMETOOLONG) {
            return directoryNameStatus(path);
        }
        if (status != ENOENT) {
            return status;
        }
        if (!followLink(path)) {
            // The lookup failed with ENOENT and not with EACCES, so the directory can be searched.
            return accessStatus(directoryOf(path), W_OK);
        }
    }
    return ELOOP;
}

qv_err_t rightsStatus(const std::string& path, unsigned int rights)
{
    if (path.empty()) {
        return ENOENT;
    }
    if (path.find('\0') != std::string::npos) {
        return EINVAL;
    }
    const bool create = (rights & RX_Filespec::CREATE) != 0;
    if (create) {
        const qv_err_t status = createStatus(path);
        if (status != 0) {
            return status;
        }
    }
    const int mode = ((rights & RX_Filespec::READ) != 0 ? R_OK : 0)
                     | ((rights & RX_Filespec::WRITE) != 0 ? W_OK : 0)
                     | ((rights & RX_Filespec::EXECUTE) != 0 ? X_OK : 0);
    if (mode == 0) {
        return 0;
    }
    const qv_err_t status = accessStatus(path, mode);
    return create && status == ENOENT ? 0 : status;
}

void checkRights(const RX_String& spec, unsigned int rights)
{
    const qv_err_t status = rightsStatus(std::string(spec.data(), spec.length()), rights);
    if (status == EACCES) {
        throw RX_ExWarning(status, spec);
    }
    if (status != 0) {
        throw RX_ExError(status, spec);
    }
}

RX_String workingDirectory()
{
    struct Free
    {
        void operator()(char* text) const
        {
            std::free(text);
        }
    };
    const std::unique_ptr<char, Free> text(::getcwd(nullptr, 0));
    if (!text) {
        throw RX_ExError(errno);
    }
    return RX_String(text.get(), RX_String::NPOS);
}

}

RX_Filespec::RX_Filespec(const RX_String& spec, access rights, si_uint16_t options)
    : _spec(spec), _baseOffset(baseOffset(spec.data(), spec.length()))
{
    if (rights != DONTCARE && (options & DEFER_CHECK) == 0) {
        checkRights(spec, rights);
    }
}

RX_String RX_Filespec::parse(component part) const
{
    const std::size_t end = _spec.length();
    switch (part) {
    case DIRECTORY:
        return substring(0, _baseOffset);
    case BASENAME:
        return substring(_baseOffset, end);
    case FILESPEC:
        return _spec;
    case COMPLETE:
        return complete();
    case FILENAME:
        return substring(_baseOffset, extensionOffset(end));
    case TYPE:
        return substring(extensionOffset(end), end);
    case SUBTYPE:
        return substring(extensionOffset(extensionOffset(end)), extensionOffset(end));
    case SCHEME:
    case HOST:
        break;
    }
    return RX_String::none;
}

RX_String RX_Filespec::iparse(component part, int index) const
{
    if (index < 0) {
        return RX_String::none;
    }
    switch (part) {
    case DIRECTORY:
        return directoryAt(index);
    case TYPE:
        return extensionAt(index);
    default:
        return index == 0 ? parse(part) : RX_String::none;
    }
}

RX_String RX_Filespec::quoted() const
{
    RX_String result = directory();
    result += RX_Wildcard::quote(basename());
    return result;
}

// The whole name shares its representation.
RX_String RX_Filespec::substring(std::size_t from, std::size_t to) const
{
    return to - from == _spec.length() ? _spec : RX_String(_spec.data() + from, to - from);
}

RX_String RX_Filespec::complete() const
{
    if (_spec.length() == 0 || _spec.data()[0] == '/') {
        return _spec;
    }
    RX_String result = workingDirectory();
    if (result.length() > 1) {
        result += RX_String("/", 1);
    }
    result += _spec;
    return result;
}

// Returns the offset of the last extension within the first `end` bytes, or `end` if there is none.
std::size_t RX_Filespec::extensionOffset(std::size_t end) const
{
    const char* const text = _spec.data();
    std::size_t start = _baseOffset;
    while (start < end && text[start] == '.') {
        ++start;
    }
    const void* const dot = ::memrchr(text + start, '.', end - start);
    return dot == nullptr ? end : static_cast<std::size_t>(static_cast<const char*>(dot) - text);
}

RX_String RX_Filespec::extensionAt(int index) const
{
    std::size_t end = _spec.length();
    std::size_t start = extensionOffset(end);
    for (; index > 0 && start != end; --index) {
        end = start;
        start = extensionOffset(end);
    }
    return substring(start, end);
}

RX_String RX_Filespec::directoryAt(int index) const
{
    const char* const text = _spec.data();
    std::size_t start = 0;
    for (;; --index) {
        while (start < _baseOffset && text[start] == '/') {
            ++start;
        }
        std::size_t end = start;
        while (end < _baseOffset && text[end] != '/') {
            ++end;
        }
        if (index == 0 || start == end) {
            return substring(start, end);
        }
        start = end;
    }
}
