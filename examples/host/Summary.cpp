#include "Summary.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <filesystem>

namespace nimhost {

namespace {

namespace fs = std::filesystem;

/** The number behind "PATH.", -1 for the live file, -2 for what does not belong to the set. */
long setNumber(const std::string& name, const std::string& live)
{
    if (name == live) {
        return -1;
    }
    if (name.compare(0, live.size() + 1, live + '.') != 0) {
        return -2;
    }
    const std::string digits = name.substr(live.size() + 1);
    const bool number =
        !digits.empty() && digits.size() < 10 && digits.find_first_not_of("0123456789") == std::string::npos;
    return number ? std::stol(digits) : -2;
}

/** The live file and its old ones, newest first. */
std::vector<Summary::Row> logFiles(const fs::path& path)
{
    const std::string live = path.filename();
    std::vector<std::pair<long, Summary::Row>> found;
    // A folder that cannot be read to its end shows what was read of it.
    std::error_code ending;
    for (fs::directory_iterator entry(path.parent_path(), ending), end; !ending && entry != end;
         entry.increment(ending)) {
        const std::string name = entry->path().filename();
        const long number = setNumber(name, live);
        if (number == -2) {
            continue;
        }
        // What is no file has no size, and what a rotation has just moved away has another name.
        std::error_code failure;
        const std::uintmax_t bytes = entry->file_size(failure);
        if (!failure) {
            found.push_back({number, {name, bytes}});
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<Summary::Row> files;
    for (auto& file : found) {
        files.push_back(std::move(file.second));
    }
    return files;
}

}

Summary::Summary(double runSeconds, const Counters& counters, std::uint64_t rotations)
    : seconds(runSeconds), counts{
                               {"tasks run", counters.tasksRun},
                               {"tasks refused by the limit", counters.tasksRefused},
                               {"tasks failed", counters.tasksFailed},
                               {"requests dropped", counters.requestsDropped},
                               {"tasks under a foreign token", counters.tasksUnderForeignToken},
                               {"longest wait, microseconds", counters.longestWaitMicros},
                               {"sources broken down", counters.sourcesBroken},
                               {"documents read", counters.documentsRead},
                               {"documents refused", counters.documentsRefused},
                               {"documents dropped", counters.documentsDropped},
                               {"elements read", counters.elementsRead},
                               {"results lost", counters.resultsLost},
                               {"plug-ins loaded again", counters.pluginsLoadedAgain},
                               {"configurations read again", counters.configurationsRead},
                               {"configurations refused", counters.configurationsRefused},
                               {"records of sources written", counters.recordsWritten},
                               {"records of sources refused", counters.recordsRefused},
                               {"rotations", rotations},
                           }
{
    const std::string log = ::com_kor_dal_nim_log_control.getPath();
    if (!log.empty()) {
        const fs::path path = fs::absolute(log).lexically_normal();
        folder = path.parent_path();
        files = logFiles(path);
    }
}

}
