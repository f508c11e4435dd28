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

/** How often the oldest file is looked for anew because files have moved. */
constexpr int MOST_ATTEMPTS = 1000;

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

RotatedFiles::RotatedFiles(const std::string& logPath, std::function<void(const std::string&)> warnings)
    : path(logPath), warn(std::move(warnings))
{
    raiseOpenFiles();
}

void RotatedFiles::look()
{
    if (path == nimtools::STANDARD_INPUT) {
        if (seen.empty()) {
            waiting.push_back({nimtools::Descriptor(STDIN_FILENO), 0, 0, 0});
        }
        return;
    }
    while (addNewer()) {
    }
    forgetRemoved();
}

bool RotatedFiles::addNewer()
{
    bool isGone = false;
    const auto isAdded = [&](File& file, Outcome& outcome) {
        outcome = addNextTo(file);
        missed = missed || (outcome == ADDED && isGone);
        isGone = isGone || outcome == GONE;
        return outcome != GONE;
    };
    Outcome outcome = GONE;
    // By index: what is added moves the others.
    for (std::size_t left = waiting.size(); left > 0; --left) {
        if (isAdded(waiting[left - 1], outcome)) {
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

/** When nothing is there that is known: begins with the oldest. */
bool RotatedFiles::addOldest()
{
    for (int attempt = 0;; ++attempt) {
        const std::set<Place> taken = places();
        File file = openAt(*taken.rbegin());
        for (auto place = taken.rbegin(); !file.descriptor && place != taken.rend(); ++place) {
            file = openAt(*place);
        }
        if (!file.descriptor) {
            return false;
        }
        // It may have moved, but nothing that is older may be above it.
        const bool isOldest =
            locate(file) && isNothingBetween(file.place, static_cast<Place>(-1)) && isAt(file, file.place);
        if (isOldest || attempt == MOST_ATTEMPTS) {
            missed = missed || !seen.empty();
            waiting.push_back(std::move(file));
            return true;
        }
    }
}

/**
 * Finds what was written next to a file. The log moves the oldest file first: as long as a file keeps its
 * place, the one below it has not moved either.
 */
RotatedFiles::Outcome RotatedFiles::addNextTo(File& file)
{
    while (locate(file)) {
        if (file.place == 0) {
            return NONE_NEWER;
        }
        Place place = file.place - 1;
        File next = openAt(place);
        while (!next.descriptor && place != 0) {
            // There is a gap in the numbers.
            const std::set<Place> taken = places();
            place = *std::prev(taken.lower_bound(place));
            next = openAt(place);
        }
        if (!isNothingBetween(place, file.place) || !isAt(file, file.place)) {
            continue;
        }
        if (!next.descriptor || contains(seen, next.device, next.inode)
            || contains(waiting, next.device, next.inode)) {
            return NONE_NEWER;
        }
        waiting.push_back(std::move(next));
        return ADDED;
    }
    return GONE;
}

/** Looks for a file from its last place on upwards, where it cannot be overtaken; false when it is gone. */
bool RotatedFiles::locate(File& file) const
{
    Place highest = 0;
    for (Place place = file.place;; ++place) {
        if (isAt(file, place)) {
            file.place = place;
            return true;
        }
        struct stat status = {};
        if (fstat(file.descriptor.get(), &status) == -1 || status.st_nlink == 0) {
            return false;
        }
        if (place > highest) {
            highest = *places().rbegin() + 1;
            if (place > highest) {
                return false;
            }
        }
    }
}

/**
 * Whether no file is between two places. A folder that is read while a file in it moves may show that one
 * under neither name; but as long as the file at one of the places stays there, those between them move once
 * at most, and so are met in one of two readings.
 */
bool RotatedFiles::isNothingBetween(Place low, Place high) const
{
    const auto isNothingMet = [&] {
        const std::set<Place> taken = places();
        return std::none_of(taken.upper_bound(low), taken.lower_bound(high), [this](Place place) {
            struct stat status = {};
            return stat(nameOf(place).c_str(), &status) == 0 && S_ISREG(status.st_mode);
        });
    };
    return high - low == 1 || (isNothingMet() && isNothingMet());
}

bool RotatedFiles::isAt(const File& file, Place place) const
{
    struct stat status = {};
    return stat(nameOf(place).c_str(), &status) == 0 && status.st_dev == file.device
           && status.st_ino == file.inode;
}

/** Returns a file without a descriptor if nothing is there, or nothing that is to be read. */
RotatedFiles::File RotatedFiles::openAt(Place place)
{
    const std::string name = nameOf(place);
    File file = {nimtools::Descriptor(), 0, 0, place};
    struct stat status = {};
    // Checked first: the open of a FIFO would wait for its writer.
    if (stat(name.c_str(), &status) == 0 && isSkipped(place, status)) {
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

/** Among several files only regular ones are read. A FIFO or a device that is alone is what the user wants.
 */
bool RotatedFiles::isSkipped(Place place, const struct stat& status)
{
    if (S_ISREG(status.st_mode) || (place == 0 && places().size() == 1)) {
        return false;
    }
    if (skipped.insert({status.st_dev, status.st_ino}).second) {
        const char* const kind = S_ISFIFO(status.st_mode)  ? "a FIFO"
                                 : S_ISDIR(status.st_mode) ? "a directory"
                                                           : "no regular file";
        warn(nameOf(place) + ": skipped, because it is " + kind);
    }
    return true;
}

std::string RotatedFiles::nameOf(Place place) const
{
    return place == 0 ? path : path + '.' + std::to_string(place - 1);
}

/** The places that are taken, and that of the live file. While files move, some may be missing. */
std::set<RotatedFiles::Place> RotatedFiles::places() const
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string begin = (slash == std::string::npos ? path : path.substr(slash + 1)) + '.';
    std::set<Place> result = {0};
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
            result.insert(number + 1);
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
