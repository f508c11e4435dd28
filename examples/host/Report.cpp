#include "Report.hpp"

#include <dalnim/nim.hpp>

#include <algorithm>
#include <filesystem>
#include <iomanip>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace nimhost {

namespace {

typedef std::pair<std::string, std::uintmax_t> FileSize;

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
std::vector<FileSize> logFiles(const std::string& path)
{
    namespace fs = std::filesystem;
    const std::string live = fs::path(path).filename();
    fs::path directory = fs::path(path).parent_path();
    std::vector<std::pair<long, FileSize>> found;
    std::error_code ignored;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(directory.empty() ? fs::path(".") : directory, ignored)) {
        const long number = setNumber(entry.path().filename(), live);
        if (number != -2) {
            found.push_back({number, {entry.path(), entry.file_size(ignored)}});
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<FileSize> files;
    for (auto& file : found) {
        files.push_back(std::move(file.second));
    }
    return files;
}

void row(std::ostream& os, const std::string& label, std::uint64_t value)
{
    os << "  " << std::left << std::setw(28) << label << std::right << std::setw(12) << value << '\n';
}

}

void showProgress(std::ostream& os, double seconds, const Counters& counters, std::uint64_t rotations)
{
    os << '\r' << std::fixed << std::setprecision(1) << std::setw(7) << seconds << " s  "
       << counters.tasksRun.load() << " tasks run, " << counters.recordsWritten.load() << " records written, "
       << rotations << " rotations\033[K" << std::flush;
}

void clearProgress(std::ostream& os)
{
    os << "\r\033[K" << std::flush;
}

void showTable(std::ostream& os, double seconds, const Counters& counters, std::uint64_t rotations)
{
    os << "nimhost ran for " << std::fixed << std::setprecision(1) << seconds << " s\n";
    row(os, "tasks run", counters.tasksRun);
    row(os, "tasks refused by the limit", counters.tasksRefused);
    row(os, "tasks failed", counters.tasksFailed);
    row(os, "tasks under a foreign token", counters.tasksUnderForeignToken);
    row(os, "longest wait, microseconds", counters.longestWaitMicros);
    row(os, "sources broken down", counters.sourcesBroken);
    row(os, "documents read", counters.documentsRead);
    row(os, "documents refused", counters.documentsRefused);
    row(os, "elements read", counters.elementsRead);
    row(os, "records written", counters.recordsWritten);
    row(os, "records refused by the gate", counters.recordsRefused);
    row(os, "rotations", rotations);

    const std::string path =
        std::filesystem::path(::com_kor_dal_nim_log_control.getPath()).lexically_normal().string();
    if (path.empty()) {
        os << "  the log is a stream, there are no files\n";
        return;
    }
    os << "  files, newest first" << std::string(15, ' ') << "bytes\n";
    for (const FileSize& file : logFiles(path)) {
        row(os, "  " + std::filesystem::path(file.first).filename().string(), file.second);
    }
    os << "  in " << std::filesystem::path(path).parent_path().string() << '\n';
}

}
