#include "Report.hpp"

#include <iomanip>
#include <ostream>

namespace nimhost {

namespace {

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

void showTable(std::ostream& os, const Summary& summary)
{
    os << "nimhost ran for " << std::fixed << std::setprecision(1) << summary.seconds << " s\n";
    for (const Summary::Row& count : summary.counts) {
        row(os, count.first, count.second);
    }
    if (summary.directory.empty()) {
        os << "  the log is written to a stream, not to files\n";
        return;
    }
    os << "  log files, newest first" << std::string(12, ' ') << "bytes\n";
    for (const Summary::Row& file : summary.files) {
        row(os, "  " + file.first, file.second);
    }
    os << "  in " << summary.directory << '\n';
}

}
