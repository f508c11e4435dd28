#include "RotatedFiles.hpp"

#include <support/Errors.hpp>
#include <support/Input.hpp>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>

namespace nimlog {

namespace {

/** Maximum number of attempts to find the oldest file while files are renamed. */
constexpr int MAX_ATTEMPTS = 1000;

/** Raises the limit of open files: all rotated files may be open. */
void raiseOpenFileLimit()
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

RotatedFiles::RotatedFiles(const std::string& logPath, std::function<void(const std::string&)> warnings)
    : path(logPath), warn(std::move(warnings))
{
    raiseOpenFileLimit();
}

void RotatedFiles::scan()
{
    if (path == nimtools::STANDARD_INPUT) {
        if (seen.empty()) {
            pending.push_back({nimtools::Descriptor(STDIN_FILENO), 0, 0, 0});
        }
        return;
    }
    if (!hasScanned) {
        hasScanned = true;
        scanFirst();
        return;
    }
    while (addNewer()) {
    }
    closeRemoved();
}

/**
 * Also finds the compressed files. If another program renames or compresses files at the same time, the
 * search is repeated: until each compressed file has kept its name, and no other file that was found is
 * removed.
 */
void RotatedFiles::scanFirst()
{
    if (compressionOf(path) != nullptr) {
        addArchive(path, {0, compressionOf(path)});
        return;
    }
    for (int attempt = 0; attempt < MAX_ATTEMPTS; ++attempt) {
        pending.clear();
        archives.clear();
        missed = false;
        while (addNewer()) {
        }
        const ArchiveNames names = listArchives();
        for (const auto& [name, meaning] : names) {
            addArchive(name, meaning);
        }
        if (names.empty() || (areArchivesAt(names) && !wasPendingRemoved())) {
            break;
        }
    }
    std::sort(archives.begin(), archives.end(), [](const Archive& left, const Archive& right) {
        return left.meaning.index != right.meaning.index ? left.meaning.index > right.meaning.index
                                                         : left.name < right.name;
    });
}

/** Returns the compressed files, except copies of uncompressed ones, which may be incomplete. */
RotatedFiles::ArchiveNames RotatedFiles::listArchives()
{
    const std::set<Index> existing = indexes();
    ArchiveNames names;
    forEachRotated([&](const std::string& name, const RotatedName& meaning) {
        if (meaning.compression != nullptr && existing.count(meaning.index) == 0) {
            names.emplace(name, meaning);
        }
    });
    return names;
}

/** Returns true if the compressed files still have these names. */
bool RotatedFiles::areArchivesAt(const ArchiveNames& names)
{
    const ArchiveNames found = listArchives();
    const bool areSame =
        std::equal(names.begin(), names.end(), found.begin(), found.end(),
                   [](const auto& left, const auto& right) { return left.first == right.first; });
    return areSame && std::all_of(archives.begin(), archives.end(), [](const Archive& archive) {
               struct stat named = {};
               struct stat opened = {};
               return stat(archive.name.c_str(), &named) == 0 && fstat(archive.descriptor.get(), &opened) == 0
                      && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
           });
}

void RotatedFiles::addArchive(const std::string& name, const RotatedName& meaning)
{
    struct stat status = {};
    if (stat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        warnSkipped(name, status);
        return;
    }
    nimtools::Descriptor descriptor(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (descriptor) {
        archives.push_back({std::move(descriptor), name, meaning});
    } else if (errno != ENOENT) {
        throw nimtools::cannotRead(name);
    }
}

/** Returns true if a file no longer has a name. */
bool RotatedFiles::isRemoved(const File& file)
{
    struct stat status = {};
    return fstat(file.descriptor.get(), &status) == 0 && status.st_nlink == 0;
}

bool RotatedFiles::wasPendingRemoved() const
{
    return std::any_of(pending.begin(), pending.end(), isRemoved);
}

bool RotatedFiles::addNewer()
{
    bool wasRemoved = false;
    const auto isAdded = [&](File& file, Outcome& outcome) {
        outcome = addSuccessorOf(file);
        missed = missed || (outcome == ADDED && wasRemoved);
        wasRemoved = wasRemoved || outcome == REMOVED;
        return outcome != REMOVED;
    };
    Outcome outcome = REMOVED;
    // By index, because adding a file invalidates references.
    for (std::size_t left = pending.size(); left > 0; --left) {
        if (isAdded(pending[left - 1], outcome)) {
            return outcome == ADDED;
        }
    }
    for (std::size_t left = seen.size(); left > 0; --left) {
        if (isAdded(seen[left - 1], outcome)) {
            return outcome == ADDED;
        }
    }
    return addOldest();
}

/** Adds the oldest file, if no known file exists any more. */
bool RotatedFiles::addOldest()
{
    for (int attempt = 0;; ++attempt) {
        const std::set<Index> existing = indexes();
        File file = openAt(*existing.rbegin());
        for (auto index = existing.rbegin(); !file.descriptor && index != existing.rend(); ++index) {
            file = openAt(*index);
        }
        if (!file.descriptor) {
            return false;
        }
        // The file may have been renamed, but no file with a higher index may exist.
        const bool isOldest =
            locate(file) && hasNoFileBetween(file.index, static_cast<Index>(-1)) && isAt(file, file.index);
        if (isOldest || attempt == MAX_ATTEMPTS) {
            missed = missed || !seen.empty();
            pending.push_back(std::move(file));
            return true;
        }
    }
}

/**
 * Adds the file that was written after `file`. A rotation renames the oldest file first: as long as a file
 * keeps its index, the one with the next lower index has not been renamed either.
 */
RotatedFiles::Outcome RotatedFiles::addSuccessorOf(File& file)
{
    while (locate(file)) {
        if (file.index == 0) {
            return NONE_NEWER;
        }
        Index index = file.index - 1;
        File next = openAt(index);
        while (!next.descriptor && index != 0) {
            // The indexes have a gap.
            const std::set<Index> existing = indexes();
            index = *std::prev(existing.lower_bound(index));
            next = openAt(index);
        }
        if (!hasNoFileBetween(index, file.index) || !isAt(file, file.index)) {
            continue;
        }
        if (!next.descriptor || contains(seen, next.device, next.inode)
            || contains(pending, next.device, next.inode)) {
            return NONE_NEWER;
        }
        pending.push_back(std::move(next));
        return ADDED;
    }
    return REMOVED;
}

/**
 * Finds a file, from its last known index upwards, since renames only increase it. Returns false if it was
 * removed.
 */
bool RotatedFiles::locate(File& file)
{
    Index highest = 0;
    for (Index index = file.index; index < FIRST_DATED; ++index) {
        if (isAt(file, index)) {
            file.index = index;
            return true;
        }
        struct stat status = {};
        if (fstat(file.descriptor.get(), &status) == -1 || status.st_nlink == 0) {
            return false;
        }
        if (index > highest) {
            const std::set<Index> existing = indexes();
            highest = *std::prev(existing.lower_bound(FIRST_DATED)) + 1;
            if (index > highest) {
                break;
            }
        }
    }
    const std::set<Index> existing = indexes();
    const auto found = std::find_if(existing.lower_bound(std::max(file.index, FIRST_DATED)), existing.end(),
                                    [&](Index index) { return isAt(file, index); });
    if (found == existing.end()) {
        return false;
    }
    file.index = *found;
    return true;
}

/**
 * Returns true if there is no file between two indexes. A directory that is read during a rename may show the
 * file under neither name. But as long as the file at one of the indexes stays there, those between them are
 * renamed at most once, so that one of two readings shows them.
 */
bool RotatedFiles::hasNoFileBetween(Index low, Index high)
{
    const auto isRangeEmpty = [&] {
        const std::set<Index> existing = indexes();
        return std::none_of(existing.upper_bound(low), existing.lower_bound(high), [this](Index index) {
            struct stat status = {};
            return stat(nameOf(index).c_str(), &status) == 0 && S_ISREG(status.st_mode);
        });
    };
    return high - low == 1 || (isRangeEmpty() && isRangeEmpty());
}

bool RotatedFiles::isAt(const File& file, Index index) const
{
    struct stat status = {};
    return stat(nameOf(index).c_str(), &status) == 0 && status.st_dev == file.device
           && status.st_ino == file.inode;
}

/**
 * Opens the file at an index. Returns a File without a descriptor if there is none, or if it must be skipped.
 */
RotatedFiles::File RotatedFiles::openAt(Index index)
{
    const std::string name = nameOf(index);
    File file = {nimtools::Descriptor(), 0, 0, index};
    struct stat status = {};
    // Checked before the open, which would wait for the writer of a FIFO.
    if (stat(name.c_str(), &status) == 0 && isSkipped(index, status)) {
        return file;
    }
    file.descriptor = nimtools::Descriptor(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.descriptor || fstat(file.descriptor.get(), &status) == -1) {
        if (errno != ENOENT) {
            throw nimtools::cannotRead(name);
        }
        return file;
    }
    file.device = status.st_dev;
    file.inode = status.st_ino;
    return file;
}

/** Of several files, only regular ones are read. A FIFO or device without rotated files is read, too. */
bool RotatedFiles::isSkipped(Index index, const struct stat& status)
{
    if (S_ISREG(status.st_mode) || (index == 0 && indexes().size() == 1)) {
        return false;
    }
    warnSkipped(nameOf(index), status);
    return true;
}

void RotatedFiles::warnSkipped(const std::string& name, const struct stat& status)
{
    if (skipped.insert({status.st_dev, status.st_ino}).second) {
        const char* const kind = S_ISFIFO(status.st_mode)  ? "a FIFO"
                                 : S_ISDIR(status.st_mode) ? "a directory"
                                                           : "not a regular file";
        warn(name + ": skipped, because it is " + kind);
    }
}

/** Returns an empty string if there is no such file: dates cannot be written in only one way. */
std::string RotatedFiles::nameOf(Index index) const
{
    if (index < FIRST_DATED) {
        return index == 0 ? path : path + '.' + std::to_string(index - 1);
    }
    const auto found = datedNames.find(index);
    return found == datedNames.end() ? std::string() : found->second;
}

/**
 * Returns the indexes of all uncompressed files, and that of the live file. During a rotation, some may be
 * missing.
 */
std::set<RotatedFiles::Index> RotatedFiles::indexes()
{
    std::set<Index> result = {0};
    forEachRotated([&](const std::string& name, const RotatedName& meaning) {
        if (meaning.compression == nullptr) {
            result.insert(meaning.index);
            if (meaning.index >= FIRST_DATED) {
                datedNames[meaning.index] = name;
            }
        }
    });
    return result;
}

/** Calls a function with the path of each rotated file. */
void RotatedFiles::forEachRotated(
    const std::function<void(const std::string&, const RotatedName&)>& function) const
{
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(directory, failure), last; !failure && entry != last;
         entry.increment(failure)) {
        const std::string name = entry->path().filename();
        RotatedName meaning = {};
        if (name.compare(0, base.size(), base) == 0
            && readRotatedName(std::string_view(name).substr(base.size()), meaning)) {
            function(path + name.substr(base.size()), meaning);
        }
    }
}

bool RotatedFiles::next()
{
    decompressor.reset();
    const bool isArchive =
        !archives.empty() && (pending.empty() || archives.front().meaning.index > pending.front().index);
    if (isArchive) {
        const Archive archive = std::move(archives.front());
        archives.pop_front();
        archiveName = archive.name;
        decompressor = std::make_unique<Decompressor>(archive.meaning.compression->program,
                                                      archive.descriptor.get(), archive.name);
        return true;
    }
    if (pending.empty()) {
        return false;
    }
    seen.push_back(std::move(pending.front()));
    pending.pop_front();
    return true;
}

void RotatedFiles::finishCurrent()
{
    if (decompressor) {
        decompressor->finish();
        decompressor.reset();
    }
}

/**
 * Closes files that have been deleted and so cannot be found again, except the current one, which is still
 * read.
 */
void RotatedFiles::closeRemoved()
{
    if (seen.empty()) {
        return;
    }
    seen.erase(std::remove_if(seen.begin(), seen.end() - 1, isRemoved), seen.end() - 1);
}

}
