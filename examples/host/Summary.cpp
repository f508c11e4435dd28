#include "Summary.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <filesystem>
#include <optional>

namespace nimhost {

namespace {

namespace fs = std::filesystem;

/** Returns the index of a file of the log: 0 for the live file, N + 1 for "LIVE.N"; none for other files. */
std::optional<unsigned long> fileIndex(const std::string& name, const std::string& live)
{
    if (name == live) {
        return 0;
    }
    if (name.compare(0, live.size() + 1, live + '.') != 0) {
        return std::nullopt;
    }
    const std::string digits = name.substr(live.size() + 1);
    if (digits.empty() || digits.size() >= 10
        || digits.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoul(digits) + 1;
}

/** Returns the live file and the rotated files, newest first. */
std::vector<Summary::Row> logFiles(const fs::path& path)
{
    const std::string live = path.filename();
    std::vector<std::pair<unsigned long, Summary::Row>> found;
    // If reading the directory fails, the files read so far are shown.
    std::error_code ending;
    for (fs::directory_iterator entry(path.parent_path(), ending), end; !ending && entry != end;
         entry.increment(ending)) {
        const std::string name = entry->path().filename();
        const std::optional<unsigned long> index = fileIndex(name, live);
        if (!index) {
            continue;
        }
        // Skips entries that are not files, and files that a rotation has just renamed.
        std::error_code failure;
        const std::uintmax_t bytes = entry->file_size(failure);
        if (!failure) {
            found.push_back({*index, {name, bytes}});
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
                               {"tasks rejected (pool full)", counters.tasksRejected},
                               {"tasks that failed", counters.tasksFailed},
                               {"requests dropped", counters.requestsDropped},
                               {"tasks with the wrong token", counters.tasksWithWrongToken},
                               {"longest wait (microseconds)", counters.longestWaitMicros},
                               {"sources that threw", counters.sourcesFailed},
                               {"documents read", counters.documentsRead},
                               {"documents rejected", counters.documentsRejected},
                               {"documents dropped", counters.documentsDropped},
                               {"XML elements read", counters.elementsRead},
                               {"results not written", counters.resultsNotWritten},
                               {"plug-ins reloaded", counters.pluginsReloaded},
                               {"configurations reloaded", counters.configurationsReloaded},
                               {"configurations rejected", counters.configurationsRejected},
                               {"source records written", counters.recordsWritten},
                               {"source records disabled", counters.recordsFiltered},
                               {"log rotations", rotations},
                           }
{
    const std::string log = ::com_kor_dal_nim_log_control.getPath();
    if (!log.empty()) {
        const fs::path path = fs::absolute(log).lexically_normal();
        directory = path.parent_path();
        files = logFiles(path);
    }
}

}
