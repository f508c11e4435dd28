#include "StatusPage.hpp"

#include "Plot.hpp"
#include "Results.hpp"

#include <dalnim/nim.hpp>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace nimhost {

namespace nim = com::kor::dal::nim;

namespace {

const char STYLE[] = R"(
:root { color-scheme: light dark; --line: #d0d7de; --soft: #59636e; --curve: #2f6f9f; }
@media (prefers-color-scheme: dark) { :root { --line: #3d444d; --soft: #9198a1; --curve: #6cb2e2; } }
body { font: 15px/1.5 system-ui, sans-serif; max-width: 47.5rem; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.4rem; margin: 0; }
p { color: var(--soft); margin: .2rem 0 1.5rem; }
svg { width: 100%; height: auto; display: block; margin-bottom: 1rem; font-size: 11px; }
svg text { fill: var(--soft); }
svg .title { fill: currentColor; font-size: 13px; font-weight: 600; }
svg .x { text-anchor: middle; }
svg .y { text-anchor: end; dominant-baseline: middle; }
svg .grid { stroke: var(--line); stroke-width: .6; }
svg .curve { stroke: var(--curve); stroke-width: 1.2; stroke-linejoin: round; fill: var(--curve); fill-opacity: .18; }
svg .hints rect { fill: transparent; }
svg .hints rect:hover { fill: var(--curve); fill-opacity: .25; }
table { border-collapse: collapse; width: 100%; margin-bottom: 1.5rem; }
caption { text-align: left; font-weight: 600; padding: .3rem 0; overflow-wrap: anywhere; }
td { border-top: 1px solid var(--line); padding: .2rem 0; overflow-wrap: anywhere; }
td + td { text-align: right; font-variant-numeric: tabular-nums; padding-left: 1rem; }
)";

std::string now()
{
    const std::time_t seconds = std::time(nullptr);
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts)};
}

void writeTable(std::ostream& os, const std::string& caption, const std::vector<Summary::Row>& rows)
{
    os << "<table><caption>" << escaped(caption) << "</caption>\n";
    for (const Summary::Row& row : rows) {
        os << "<tr><td>" << escaped(row.first) << "</td><td>" << grouped(row.second) << "</td></tr>\n";
    }
    os << "</table>\n";
}

void writePlots(std::ostream& os, const std::vector<Sample>& samples)
{
    Plot records("Log records of the sources per second", "records per second");
    Plot waiting("Requests waiting for a worker", "requests");
    Plot rotations("Log rotations so far", "rotations");
    for (std::size_t i = 1; i < samples.size(); ++i) {
        const Sample& before = samples[i - 1];
        const Sample& sample = samples[i];
        const double seconds = sample.seconds - before.seconds;
        if (seconds > 0) {
            records.add(sample.seconds, static_cast<double>(sample.records - before.records) / seconds);
            waiting.add(sample.seconds, static_cast<double>(sample.waiting));
            rotations.add(sample.seconds, static_cast<double>(sample.rotations));
        }
    }
    records.write(os);
    waiting.write(os);
    rotations.write(os);
}

void writePage(std::ostream& os, const Summary& summary, const History& history, bool running)
{
    const std::string host = escaped(nim::sys::System::hostname());
    os << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
       << "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n";
    if (running) {
        os << "<meta http-equiv=\"refresh\" content=\"1\"/>\n";
    }
    os << "<title>nimhost on " << host << "</title>\n<style>" << STYLE << "</style>\n</head>\n<body>\n"
       << "<h1>nimhost on " << host << "</h1>\n<p>" << (running ? "Running" : "Ran") << " for " << std::fixed
       << std::setprecision(1) << summary.seconds << " s; written " << now() << "</p>\n";
    os << std::defaultfloat << std::setprecision(6);
    writePlots(os, history.samples());
    writeTable(os, "Summary", summary.counts);
    if (!summary.directory.empty()) {
        writeTable(os, "Size in bytes of the log files in " + summary.directory + ", newest first",
                   summary.files);
    }
    os << "</body>\n</html>\n";
}

/** Returns the path that a symbolic link refers to, even if it does not exist. */
std::string followed(const std::filesystem::path& path)
{
    constexpr int MAX_LINKS = 40; // as in the kernel
    std::filesystem::path end = path;
    for (int links = 0; links < MAX_LINKS && std::filesystem::is_symlink(end); ++links) {
        end = end.parent_path() / std::filesystem::read_symlink(end);
    }
    return end;
}

[[noreturn]] void fail(const std::string& file, int error)
{
    throw std::runtime_error("cannot write " + file + ": " + nim::sys::sys_err_string(error));
}

/**
 * Replaces the content of a file atomically: readers see the old content or the new one.
 * @throws std::runtime_error if that fails
 */
void replace(const std::string& file, const std::string& text)
{
    const std::string fresh = file + ".new";
    // Removes the file of a host that was killed, or a link that would redirect the page.
    static_cast<void>(std::remove(fresh.c_str()));
    std::FILE* const out = std::fopen(fresh.c_str(), "wxe");
    if (out == nullptr) {
        fail(file, errno);
    }
    int error = std::fwrite(text.data(), 1, text.size(), out) == text.size() ? 0 : errno;
    if (std::fclose(out) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && std::rename(fresh.c_str(), file.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        static_cast<void>(std::remove(fresh.c_str()));
        fail(file, error);
    }
}

}

StatusPage::StatusPage(const std::string& path) : file(followed(path))
{
    // The page replaces its file, which must not be a pipe or a device.
    if (std::filesystem::exists(file) && !std::filesystem::is_regular_file(file)) {
        fail(path, std::filesystem::is_directory(file) ? EISDIR : EINVAL);
    }
}

void StatusPage::write(const Summary& summary, const History& history, bool running) const
{
    std::ostringstream page;
    writePage(page, summary, history, running);
    replace(file, page.str());
}

}
