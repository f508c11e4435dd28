#include "StatusPage.hpp"

#include "Plot.hpp"
#include "Results.hpp"

#include <dalnim/nim.hpp>

#include <ctime>
#include <iomanip>
#include <sstream>

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

}

StatusPage::StatusPage(const std::string& path) : file(path) {}

void StatusPage::write(const Summary& summary, const History& history, bool running) const
{
    std::ostringstream page;
    writePage(page, summary, history, running);
    file.write(page.str());
}

}
