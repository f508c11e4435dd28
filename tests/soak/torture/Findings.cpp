#include "Findings.hpp"

#include <algorithm>
#include <cstdio>

namespace torture {

namespace {

constexpr std::size_t LONGEST_REPORT = 4000;

void note(std::string& report, const char* fault, unsigned int writer, unsigned int number,
          std::string_view text = {})
{
    if (report.size() < LONGEST_REPORT) {
        report.append("  ").append(fault).append(": writer ").append(std::to_string(writer));
        report.append(" number ")
            .append(std::to_string(number))
            .append(" ")
            .append(text.substr(0, 200))
            .append("\n");
    }
}

}

Figures& Figures::operator+=(const Figures& other)
{
    records += other.records;
    kills += other.kills;
    forks += other.forks;
    lost += other.lost;
    torn += other.torn;
    glued += other.glued;
    hung += other.hung;
    wrong += other.wrong;
    gaps += other.gaps;
    throws += other.throws;
    onStandardError += other.onStandardError;
    return *this;
}

void Findings::read(std::string_view text, bool isFile)
{
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        readLine(text.substr(0, end), isFile);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

void Findings::readLine(std::string_view line, bool isFile)
{
    for (std::size_t at = line.find(MARK); at != std::string_view::npos; at = line.find(MARK, at + 1)) {
        Key key;
        if (!readKey(line.substr(at), key)) {
            continue;
        }
        Found& record = found[key];
        const std::string expected = recordText(round.scenario, key.first, key.second);
        if (line.compare(at, expected.size(), expected) != 0) {
            record.isPart = true;
            continue;
        }
        ++(isFile ? record.inFiles : record.onStandardError);
        // A record at the beginning of its line has the shortest prefix.
        prefixLength = std::min(prefixLength, at);
        if (at > prefixLength || at > 3) {
            beginnings.push_back({key, std::string(line.substr(0, at))});
        }
    }
}

bool Findings::readKey(std::string_view text, Key& key) const
{
    int length = 0;
    const std::string head(text.substr(0, 40));
    return std::sscanf(head.c_str(), "@rec %u %u %n", &key.first, &key.second, &length) == 2 && length != 0
           && head[static_cast<std::size_t>(length) - 1] == ' ';
}

bool Findings::isGlued(const Beginning& beginning) const
{
    if (beginning.text.size() <= prefixLength) {
        return false;
    }
    if (round.scenario.children == 0) {
        return true;
    }
    // Another process may have been killed, or found the disk full, inside its record while this process had
    // the file open. The part that is written to a full disk may be too short to be recognised as part of a
    // record.
    return !round.scenario.diskFills && beginning.text.find(MARK) == std::string::npos;
}

void Findings::judge(Figures& figures, std::string& report)
{
    for (const Beginning& beginning : beginnings) {
        if (isGlued(beginning)) {
            ++figures.glued;
            note(report, "glued", beginning.record.first, beginning.record.second, beginning.text);
        }
    }
    const bool removesNone = round.scenario.maxNumberOfFiles == 0;
    // With a maximum number of files, set as soon as a record has been found in a file: only older files were
    // deleted. A process that cannot read the directory counts no rotated files, and may later delete files
    // other than the oldest.
    bool isKept = removesNone;
    for (unsigned int life = 0; life < round.scenario.lives; ++life) {
        bool isKeptAfter = isKept;
        for (unsigned int index = 0; index < round.scenario.threads; ++index) {
            bool isKeptOfThread = isKept;
            judgeWriter(round.thread(life, index), isKeptOfThread, figures, report);
            isKeptAfter = isKeptAfter || isKeptOfThread;
        }
        for (unsigned int index = 0; index < round.forks[life]; ++index) {
            // The parent may delete the file that a child writes to at any time.
            bool isKeptOfChild = removesNone;
            judgeWriter(round.child(life, index), isKeptOfChild, figures, report);
        }
        isKept = isKeptAfter;
    }
}

void Findings::judgeWriter(const Writer& writer, bool& isKept, Figures& figures, std::string& report) const
{
    for (unsigned int number = 0; number < writer.count; ++number) {
        const Statement statement = writer.statements[number];
        const auto at = found.find({writer.number, number});
        const Found record = at != found.end() ? at->second : Found();
        const unsigned int times = record.inFiles + record.onStandardError;
        if (times > 1 || (times != 0 && statement == Statement::NOT_BEGUN)) {
            ++figures.wrong;
            note(report, times > 1 ? "twice" : "never written", writer.number, number);
        }
        isKept = isKept || (record.inFiles != 0 && !writer.isChild && !round.scenario.directoryCloses);
        figures.onStandardError += record.onStandardError;
        figures.throws += statement == Statement::THREW ? 1 : 0;
        if (statement != Statement::RETURNED) {
            continue;
        }
        ++figures.records;
        if (times == 0 && isKept) {
            ++(record.isPart ? figures.torn : figures.lost);
            note(report, record.isPart ? "torn" : "lost", writer.number, number);
        }
    }
}

}
