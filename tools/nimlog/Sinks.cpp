#include "Sinks.hpp"

#include "JsonText.hpp"
#include "Severities.hpp"
#include "TimeText.hpp"

#include <dalnim/log/Common.hpp>
#include <dalnim/log/FieldReader.hpp>
#include <support/TerminalText.hpp>

#include <algorithm>
#include <array>

namespace nimlog {

namespace log = com::kor::dal::nim::log;

namespace {

/** ECMA-48 escape sequences by severity. */
constexpr std::array<std::string_view, log::Severity_COUNT> COLORS = {
    "", "\x1b[2m", "\x1b[2m", "", "\x1b[1m", "\x1b[33m", "\x1b[31m", "\x1b[1;31m"};
constexpr std::string_view COLOR_END = "\x1b[0m";

void appendMember(std::string& line, std::string_view name)
{
    line += line.size() == 1 ? "\"" : ",\"";
    line += name;
    line += "\":";
}

void appendTwoDigits(std::string& text, int number)
{
    text += static_cast<char>('0' + number / 10);
    text += static_cast<char>('0' + number % 10);
}

/** Appends a time as in RFC 3339. */
void appendTime(std::string& line, const DateTime& time)
{
    line += '"';
    appendTwoDigits(line, time.year / 100);
    appendTwoDigits(line, time.year % 100);
    line += '-';
    appendTwoDigits(line, time.month);
    line += '-';
    appendTwoDigits(line, time.day);
    line += 'T';
    line += time.clock;
    if (time.zone == "UTC") {
        line += 'Z';
    } else if (time.zone.size() != sizeof "+0100" - 1) {
        line += time.zone;
    } else {
        line += time.zone.substr(0, 3);
        line += ':';
        line += time.zone.substr(3);
    }
    line += '"';
}

/** Returns source file and line, which follow each other in a record, or one of them. */
std::string_view sourceOf(const Fields& fields)
{
    const bool hasFile = (fields.present & log::Mask_SOURCEFILE) != 0;
    const bool hasLine = (fields.present & log::Mask_LINENUMBER) != 0;
    if (!hasFile || !hasLine) {
        return hasFile ? fields.source : hasLine ? fields.line : "";
    }
    const char* const begin = fields.source.data();
    return {begin, static_cast<std::size_t>(fields.line.data() + fields.line.size() - begin)};
}

/** Appends digits as a JSON number, which must not start with 0. */
void appendNumber(std::string& line, std::string_view digits)
{
    line += digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
}

}

void TextSink::consume(const Record& record)
{
    const Fields& fields = record.fields;
    if (color && (fields.present & log::Mask_SEVERITY) != 0
        && !COLORS[static_cast<std::size_t>(fields.severity)].empty()) {
        const auto begin = static_cast<std::size_t>(fields.severityName.data() - record.whole.data());
        write(record.whole.substr(0, begin));
        out << COLORS[static_cast<std::size_t>(fields.severity)] << fields.severityName << COLOR_END;
        write(record.whole.substr(begin + fields.severityName.size()));
    } else {
        write(record.whole);
    }
    out << '\n';
}

void TextSink::write(std::string_view text)
{
    if (!toTerminal) {
        out << text;
        return;
    }
    visible.clear();
    nimtools::appendVisible(visible, text, "\t\n");
    out << visible;
}

void JsonSink::consume(const Record& record)
{
    const Fields& fields = record.fields;
    const auto isPresent = [&fields](log::Mask bit) { return (fields.present & bit) != 0; };
    const auto text = [&](log::Mask bit, std::string_view name, std::string_view value) {
        if (isPresent(bit)) {
            appendMember(line, name);
            appendJson(line, value);
        }
    };
    const auto number = [&](log::Mask bit, std::string_view name, std::string_view value) {
        if (isPresent(bit)) {
            appendMember(line, name);
            appendNumber(line, value);
        }
    };
    line = "{";
    if (!record.log.empty()) {
        appendMember(line, "log");
        appendJson(line, record.log);
    }
    if (isPresent(log::Mask_DATETIME)) {
        appendMember(line, "time");
        appendTime(line, fields.dateTime);
    }
    text(log::Mask_HOSTNAME, "host", fields.host);
    text(log::Mask_PROCESSNAME, "process", fields.process);
    number(log::Mask_PROCESSID, "pid", fields.processId);
    number(log::Mask_THREADID, "thread", fields.thread);
    text(log::Mask_MODULENAME, "module", fields.module);
    if (fields.hasSeverity()) {
        appendMember(line, "severity");
        appendJson(line, severityNameOf(fields));
    }
    text(log::Mask_SOURCEFILE, "source", fields.source);
    number(log::Mask_LINENUMBER, "line", fields.line);
    appendMember(line, "text");
    appendJson(line, record.text());
    appendFields(record.text());
    line += "}\n";
    out << line;
}

/** Appends the fields in the text of a record. Of several with the same name, only the first one. */
void JsonSink::appendFields(std::string_view text)
{
    if (text.find('=') == std::string_view::npos) {
        return;
    }
    names.clear();
    log::FieldReader fields(text);
    while (fields.next()) {
        if (std::find(names.begin(), names.end(), fields.name()) != names.end()) {
            continue;
        }
        line += names.empty() ? ",\"fields\":{" : ",";
        names.push_back(fields.name());
        appendJson(line, fields.name());
        line += ':';
        appendJson(line, fields.value());
    }
    if (!names.empty()) {
        line += '}';
    }
}

CountSink::CountSink(CountBy countedField) : countBy(countedField) {}

void CountSink::consume(const Record& record)
{
    const std::string_view key = keyOf(record.fields);
    if (key.empty()) {
        ++missingFieldsCount;
        return;
    }
    const auto known = counts.find(key);
    if (known != counts.end()) {
        ++known->second;
    } else {
        counts.emplace(key, 1);
    }
}

std::string_view CountSink::keyOf(const Fields& fields)
{
    switch (countBy) {
    case CountBy::SEVERITY:
        return fields.hasSeverity() ? severityNameOf(fields) : "";
    case CountBy::MODULE:
        return (fields.present & log::Mask_MODULENAME) != 0 ? fields.module : "";
    case CountBy::SOURCE:
        return sourceOf(fields);
    case CountBy::THREAD:
        return (fields.present & log::Mask_THREADID) != 0 ? fields.thread : "";
    default:
        break;
    }
    if ((fields.present & log::Mask_DATETIME) == 0) {
        return "";
    }
    if (hourText.empty() || hour != fields.dateTime.when.seconds / SECONDS_OF_HOUR) {
        hour = fields.dateTime.when.seconds / SECONDS_OF_HOUR;
        const std::time_t begin = hour * SECONDS_OF_HOUR;
        std::tm time = {};
        gmtime_r(&begin, &time);
        std::array<char, 64> text;
        hourText.assign(text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:00Z", &time));
    }
    return hourText;
}

/** Returns the counts in output order: severities by severity, hours by time, others by count. */
std::vector<const CountSink::Counts::value_type*> CountSink::inOrder() const
{
    std::vector<const Counts::value_type*> list;
    for (const auto& count : counts) {
        list.push_back(&count);
    }
    if (countBy == CountBy::SEVERITY) {
        std::sort(list.begin(), list.end(), [](const auto* l, const auto* r) {
            return log::getSeverityId(l->first) > log::getSeverityId(r->first);
        });
    } else if (countBy != CountBy::HOUR) {
        std::sort(list.begin(), list.end(), [](const auto* l, const auto* r) {
            return l->second != r->second ? l->second > r->second : l->first < r->first;
        });
    }
    return list;
}

void CountSink::write(nimtools::Output& out, bool json, bool isForTerminal) const
{
    const char* const name = countBy == CountBy::SEVERITY ? "severity"
                             : countBy == CountBy::MODULE ? "module"
                             : countBy == CountBy::SOURCE ? "source"
                             : countBy == CountBy::THREAD ? "thread"
                                                          : "hour";
    constexpr std::size_t WIDTH = 10;
    for (const auto* const count : inOrder()) {
        const std::string number = std::to_string(count->second);
        if (json) {
            std::string line = "{";
            appendMember(line, name);
            if (countBy == CountBy::THREAD) {
                appendNumber(line, count->first);
            } else {
                appendJson(line, count->first);
            }
            appendMember(line, "count");
            out << line << number << "}\n";
        } else {
            std::string shown = count->first;
            if (isForTerminal) {
                shown.clear();
                nimtools::appendVisible(shown, count->first, "\t");
            }
            out << std::string(WIDTH - std::min(number.size(), WIDTH), ' ') << number << ' ' << shown << '\n';
        }
    }
}

}
