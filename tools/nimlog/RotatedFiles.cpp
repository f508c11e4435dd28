#include "RotatedFiles.hpp"

#include <support/Errors.hpp>
#include <support/Input.hpp>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>

namespace nimlog {

namespace {

/** There may be many old files. */
void raiseOpenFiles()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

template <class Files>
bool contains(const Files& files, dev_t device, ino_t inode)
{
    return std::any_of(files.begin(), files.end(), [device, inode](const auto& file) {
        return file.device == device && file.inode == inode;
    });
}

}

RotatedFiles::RotatedFiles(const std::string& logPath) : path(logPath)
{
    raiseOpenFiles();
}

/**
 * From the newest to the oldest, in whose direction files move: what is moved meanwhile is met again
 * under its next name, and nothing slips through.
 */
void RotatedFiles::look()
{
    std::vector<File> found;
    if (path == nimtools::STANDARD_INPUT) {
        if (seen.empty()) {
            waiting.push_back({nimtools::Descriptor(STDIN_FILENO), 0, 0});
        }
        return;
    }
    bool goOn = visit(path, found);
    std::size_t next = 0;
    for (std::set<std::size_t> listed = numbers(); goOn && !listed.empty() && *listed.rbegin() >= next;
         listed = numbers()) {
        std::set<std::size_t> names = listed;
        for (const std::size_t number : listed) {
            names.insert(number + 1);
        }
        for (auto name = names.lower_bound(next); goOn && name != names.end(); ++name) {
            goOn = visit(path + '.' + std::to_string(*name), found);
            next = *name + 1;
        }
    }
    // With `goOn` all was looked at, and nothing was known.
    if (goOn && !seen.empty() && !found.empty()) {
        missed = true;
    }
    for (auto file = found.rbegin(); file != found.rend(); ++file) {
        waiting.push_back(std::move(*file));
    }
    forgetRemoved();
}

/** False when the file has been seen before this look: so have all that are older. */
bool RotatedFiles::visit(const std::string& name, std::vector<File>& found)
{
    nimtools::Descriptor descriptor(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!descriptor || fstat(descriptor.get(), &status) == -1) {
        if (errno == ENOENT) {
            return true;
        }
        throw nimtools::cannotRead(name);
    }
    if (contains(seen, status.st_dev, status.st_ino) || contains(waiting, status.st_dev, status.st_ino)) {
        const File& newest = waiting.empty() ? seen.back() : waiting.back();
        missed = missed || (!found.empty() && newest.inode != status.st_ino);
        return false;
    }
    if (!contains(found, status.st_dev, status.st_ino)) {
        found.push_back({std::move(descriptor), status.st_dev, status.st_ino});
    }
    return true;
}

/** The numbers of the old files. */
std::set<std::size_t> RotatedFiles::numbers() const
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string begin = path.substr(slash + 1) + '.';
    std::set<std::size_t> result;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), last; !failure && entry != last;
         entry.increment(failure)) {
        const std::string name = entry->path().filename();
        if (name.compare(0, begin.size(), begin) != 0) {
            continue;
        }
        std::size_t number = 0;
        const char* const end = name.data() + name.size();
        const auto [stop, error] = std::from_chars(name.data() + begin.size(), end, number);
        // The log writes no other form.
        if (error == std::errc() && stop == end && begin + std::to_string(number) == name
            && number != static_cast<std::size_t>(-1)) {
            result.insert(number);
        }
    }
    return result;
}

bool RotatedFiles::next()
{
    if (waiting.empty()) {
        return false;
    }
    seen.push_back(std::move(waiting.front()));
    waiting.pop_front();
    return true;
}

/** A file without a name cannot be met again; that in hand is still to be read. */
void RotatedFiles::forgetRemoved()
{
    if (seen.empty()) {
        return;
    }
    const auto isRemoved = [](const File& file) {
        struct stat status = {};
        return fstat(file.descriptor.get(), &status) == 0 && status.st_nlink == 0;
    };
    seen.erase(std::remove_if(seen.begin(), seen.end() - 1, isRemoved), seen.end() - 1);
}

}
