#include <qv/pmx/glob.h>

#include <qv/pmx/WildPattern.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <dirent.h>

struct qv_glob_scan
{
    std::vector<std::string> names;
    std::size_t next = 0;
};

namespace {

struct DirectoryCloser
{
    void operator()(DIR* directory) const
    {
        ::closedir(directory);
    }
};

bool isDots(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

qv_err_t readNames(std::vector<std::string>& names, const char* path, const qv::WildPattern& pattern)
{
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(*path == '\0' ? "." : path));
    if (!directory) {
        return errno;
    }
    for (;;) {
        // Null means the end or an error, and only errno distinguishes them.
        errno = 0;
        // The stream is local to this call. NOLINTNEXTLINE(concurrency-mt-unsafe)
        const dirent* const entry = ::readdir(directory.get());
        if (entry == nullptr) {
            return errno;
        }
        if (!isDots(entry->d_name) && pattern.matches(entry->d_name)) {
            names.emplace_back(entry->d_name);
        }
    }
}

}

qv_err_t qv_si_fileio_glob_construct(qv_glob_t* glob, const char* directory, const char* pattern) noexcept
{
    glob->scan = nullptr;
    try {
        const qv::WildPattern compiled(pattern);
        auto scan = std::make_unique<qv_glob_scan>();
        const qv_err_t status = readNames(scan->names, directory, compiled);
        std::sort(scan->names.begin(), scan->names.end());
        glob->scan = scan.release();
        return status;
    } catch (const std::invalid_argument&) {
        return EINVAL;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

const char* qv_si_fileio_glob_next(qv_glob_t* glob) noexcept
{
    qv_glob_scan* const scan = glob->scan;
    if (scan == nullptr || scan->next == scan->names.size()) {
        return nullptr;
    }
    return scan->names[scan->next++].c_str();
}

void qv_si_fileio_glob_destruct(qv_glob_t* glob) noexcept
{
    delete glob->scan;
    glob->scan = nullptr;
}
