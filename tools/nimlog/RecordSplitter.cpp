#include "RecordSplitter.hpp"

#include "Severities.hpp"
#include "TimeText.hpp"

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/StreamHeader.hpp>

#include <cstring>

namespace nimlog {

namespace log = com::kor::dal::nim::log;

namespace {

/** Maximum size of a record in bytes. The rest becomes a record of its own, without a prefix. */
constexpr std::size_t MAX_RECORD_SIZE = 16UL * 1024 * 1024;

/** How a log writes a line break if it escapes control characters. */
constexpr std::string_view ESCAPED_NEWLINE = "\\n";

constexpr std::string_view STREAM_HEADER_LABEL = log::STREAM_HEADER_OUTPUT_MASK;
constexpr std::string_view REPORT_TITLE = log::CHANGE_REPORT_OF_OUTPUT_MASK;
constexpr std::string_view REPORT_OLD = log::CHANGE_REPORT_OLD_VALUE;
constexpr std::string_view REPORT_NEW = log::CHANGE_REPORT_NEW_VALUE;
constexpr std::string_view RECONFIGURATION_TITLE = log::RECONFIGURATION_TITLE;
constexpr std::string_view RECONFIGURED_MASK = log::RECONFIGURATION_OF_OUTPUT_MASK;
constexpr std::string_view RECONFIGURATION_OLD = log::RECONFIGURATION_OLD_VALUE;
constexpr std::string_view RECONFIGURATION_NEW = log::RECONFIGURATION_NEW_VALUE;

bool beginsWith(std::string_view text, std::string_view begin)
{
    return text.substr(0, begin.size()) == begin;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/**
 * Returns true if a prefix may include the date of the next record, after its own one: the name of a process
 * can contain spaces, and a date without spaces can be a part of any name.
 */
bool mayIncludeDate(std::string_view line, const Fields& fields)
{
    const bool hasDate = (fields.present & log::Mask_DATETIME) != 0;
    const char* const begin =
        hasDate ? fields.dateTime.zone.data() + fields.dateTime.zone.size() : line.data();
    // The second but last character of the prefix is a colon.
    const char* const end = line.data() + fields.length - 2;
    return begin < end && std::memchr(begin, ':', static_cast<std::size_t>(end - begin)) != nullptr;
}

/**
 * Returns the text after an escaped line break and a label, or a null view if the record has no such label.
 */
std::string_view behindEscaped(std::string_view line, std::string_view label)
{
    for (std::size_t at = 0; (at = line.find(ESCAPED_NEWLINE, at)) != std::string_view::npos; ++at) {
        const std::string_view rest = line.substr(at + ESCAPED_NEWLINE.size());
        if (beginsWith(rest, label)) {
            return rest.substr(label.size());
        }
    }
    return {};
}

/** Returns true if the line ends with the title, or if the title is followed by an escaped line break. */
bool hasTitle(std::string_view line, std::string_view title)
{
    const std::size_t at = line.find(title);
    return at != std::string_view::npos
           && (at + title.size() == line.size()
               || beginsWith(line.substr(at + title.size()), ESCAPED_NEWLINE));
}

}

RecordSplitter::RecordSplitter(unsigned int mask, RecordSink& recordSink)
    : prefix(mask, log::TERMINATOR), streamHeader(log::STREAM_HEADER_MASK, log::STREAM_HEADER_TERMINATOR),
      sink(recordSink)
{
}

char* RecordSplitter::prepare(std::size_t size)
{
    // Discards the bytes of records that were emitted; the pending record stays contiguous.
    const std::size_t kept = hasRecord ? recordBegin : lineBegin;
    std::vector<char> larger;
    char* target = buffer.data();
    if (filled - kept + size > buffer.size()) {
        larger.resize(2 * (filled - kept) + size);
        target = larger.data();
    }
    if (kept != filled && target != buffer.data() + kept) {
        std::memmove(target, buffer.data() + kept, filled - kept);
    }
    if (hasRecord) {
        rebase(record.fields, buffer.data() + kept, target);
        recordBegin = 0;
    }
    report = reportBegin < kept ? NO_REPORT : report;
    reportBegin -= report != NO_REPORT ? kept : reportBegin;
    if (!larger.empty()) {
        buffer = std::move(larger);
    }
    filled -= kept;
    lineBegin -= kept;
    searched -= kept;
    return buffer.data() + filled;
}

void RecordSplitter::commit(std::size_t size)
{
    filled += size;
    scan();
}

void RecordSplitter::scan()
{
    while (searched < filled) {
        const void* const found = std::memchr(buffer.data() + searched, '\n', filled - searched);
        if (found == nullptr) {
            searched = filled;
            if (filled - lineBegin > MAX_RECORD_SIZE) {
                processLine(bytes(lineBegin, filled));
                lineBegin = filled;
                emit(filled);
            }
            return;
        }
        const auto end = static_cast<std::size_t>(static_cast<const char*>(found) - buffer.data());
        processLine(bytes(lineBegin, end));
        lineBegin = searched = end + 1;
    }
}

/** A line may contain several records, if the previous ones were cut off before their newlines. */
void RecordSplitter::processLine(std::string_view line)
{
    std::size_t begin = lineBegin;
    Prefix outer;
    parse(line, outer);
    for (std::size_t inside; (inside = findEmbedded(line, outer)) != std::string_view::npos;) {
        // A prefix that extends into the next record is not one: it includes fields of that record.
        outer.isFound = outer.isFound && outer.fields.length <= inside;
        processPart(begin, line.substr(0, inside), outer);
        begin += inside;
        line.remove_prefix(inside);
        outer = inner;
    }
    processPart(begin, line, outer);
}

void RecordSplitter::processPart(std::size_t begin, std::string_view part, const Prefix& found)
{
    if (found.isFound) {
        beginRecord(begin, found.fields, true);
        inStreamHeader = found.isStreamHeader;
        unsigned int mask = 0;
        if (inStreamHeader && readReportedMask(behindEscaped(part, STREAM_HEADER_LABEL), mask)) {
            prefix.setMask(mask);
        }
    } else {
        continueRecord(begin, withoutPriority(part));
    }
    const std::string_view line = withoutPriority(part);
    watchReport(begin, line, found.isFound ? found.fields.length - (part.size() - line.size()) : 0);
}

void RecordSplitter::parse(std::string_view line, Prefix& into)
{
    // The prefix of a stream header has another terminator than that of a record.
    into.isStreamHeader = false;
    into.isFound = prefix.parse(line, into.fields);
    if (!into.isFound && hasTitle(line, log::STREAM_HEADER_TITLE)) {
        into.isFound = into.isStreamHeader = streamHeader.parse(line, into.fields);
    }
}

/** Returns the position of the first record inside a line, or npos. Stores its prefix in `inner`. */
std::size_t RecordSplitter::findEmbedded(std::string_view line, const Prefix& outer)
{
    if (!prefix.hasDate() && !hasTitle(line, log::STREAM_HEADER_TITLE)) {
        return std::string_view::npos;
    }
    const bool isWholePrefix = outer.isFound && !mayIncludeDate(line, outer.fields);
    std::size_t from = isWholePrefix ? outer.fields.length : 1;
    for (std::size_t at; (at = findDateTime(line, from)) != std::string_view::npos; from = at + 1) {
        if (at >= from + PRIORITY_LENGTH && hasPriority(line.substr(at - PRIORITY_LENGTH))) {
            at -= PRIORITY_LENGTH;
        }
        parse(line.substr(at), inner);
        // Without a date, almost any text would match.
        if (inner.isFound && (inner.isStreamHeader || prefix.hasDate())
            && followsFragment(line.substr(0, at), outer)) {
            return at;
        }
        at += inner.fields.hasPriority ? PRIORITY_LENGTH : 0;
    }
    return std::string_view::npos;
}

/**
 * Returns true if the text in front of a prefix is a fragment of a record, rather than the text of a record
 * that quotes another one. A quoted record is older than the one that quotes it. If both have the same
 * second, a quotation follows white space or punctuation.
 */
bool RecordSplitter::followsFragment(std::string_view fragment, const Prefix& outer) const
{
    const bool isInsidePrefix = outer.isFound && fragment.size() < outer.fields.length;
    const bool isOfRecord = outer.isFound || (hasRecord && record.hasPrefix);
    const Fields& fields = outer.isFound ? outer.fields : record.fields;
    if (inner.isStreamHeader || !isOfRecord || isInsidePrefix || (fields.present & log::Mask_DATETIME) == 0) {
        return true;
    }
    DateTime cutPrefix = {};
    const std::string_view cut = withoutPriority(fragment);
    const bool isCutPriority =
        inner.fields.hasPriority && fragment.size() < PRIORITY_LENGTH && fragment.front() == '<';
    if (!outer.isFound && (isCutPriority || isCutDateTime(cut) || readDateTime(cut, cutPrefix) != 0)) {
        return true;
    }
    // By seconds: the fraction of a nested statement may be the later one.
    if (inner.fields.dateTime.when.seconds != fields.dateTime.when.seconds) {
        return inner.fields.dateTime.when.seconds > fields.dateTime.when.seconds;
    }
    return std::string_view(" \t\"'`([{<>|:=,;").find(fragment.back()) == std::string_view::npos;
}

/** Appends a line without a prefix to the pending record, if that may have more lines. */
void RecordSplitter::continueRecord(std::size_t begin, std::string_view line)
{
    const bool isTooLong = hasRecord && begin - recordBegin > MAX_RECORD_SIZE;
    const bool isReported = report != NO_REPORT && begin - reportBegin < MAX_RECORD_SIZE;
    if (!hasRecord || isTooLong || (!record.hasPrefix && !isReported)) {
        beginRecord(begin, Fields(), false);
    }
    unsigned int mask = 0;
    if (inStreamHeader && beginsWith(line, STREAM_HEADER_LABEL)
        && readReportedMask(line.substr(STREAM_HEADER_LABEL.size()), mask)) {
        prefix.setMask(mask);
    }
}

/**
 * Follows a report of a changed mask: its title, the old mask and the new mask are on three lines.
 * @param textBegin the length of the prefix; 0 if the line has none
 */
void RecordSplitter::watchReport(std::size_t begin, std::string_view line, std::size_t textBegin)
{
    if (watchReconfiguration(begin, line, textBegin)) {
        return;
    }
    unsigned int mask = 0;
    if (endsWith(line, REPORT_TITLE)) {
        report = AFTER_TITLE;
        reportBegin = begin;
    } else if (line.size() > REPORT_TITLE.size() && endsWith(line, "]") && hasTitle(line, REPORT_TITLE)) {
        reportBegin = begin;
        if (readReportedMask(behindEscaped(line, REPORT_NEW), mask)) {
            changeMask(mask);
        }
        report = NO_REPORT;
    } else if (report == AFTER_TITLE && beginsWith(line, REPORT_OLD)) {
        report = AFTER_OLD;
    } else {
        if (report == AFTER_OLD && beginsWith(line, REPORT_NEW)
            && readReportedMask(line.substr(REPORT_NEW.size()), mask)) {
            changeMask(mask);
        }
        report = NO_REPORT;
    }
}

/** Follows a report of several changed settings. Returns false if the line is not a part of one. */
bool RecordSplitter::watchReconfiguration(std::size_t begin, std::string_view line, std::size_t textBegin)
{
    unsigned int mask = 0;
    // Without a known prefix, which a new mask changes, the whole line must be searched.
    const std::size_t title = textBegin == 0 ? line.find(RECONFIGURATION_TITLE) : textBegin;
    if (title != std::string_view::npos && beginsWith(line.substr(title), RECONFIGURATION_TITLE)) {
        reportBegin = begin;
        report = IN_RECONFIGURATION;
        const std::string_view settings = line.substr(title);
        const std::string_view maskSetting = behindEscaped(settings, RECONFIGURED_MASK);
        if (readReportedMask(behindEscaped(maskSetting, RECONFIGURATION_NEW), mask)) {
            changeMask(mask);
            report = NO_REPORT;
        }
        return true;
    }
    if (report == IN_RECONFIGURATION && line == RECONFIGURED_MASK) {
        report = IN_RECONFIGURED_MASK;
        return true;
    }
    if (report == IN_RECONFIGURED_MASK && beginsWith(line, RECONFIGURATION_NEW)
        && readReportedMask(line.substr(RECONFIGURATION_NEW.size()), mask)) {
        changeMask(mask);
        report = NO_REPORT;
        return true;
    }
    return (report == IN_RECONFIGURATION && beginsWith(line, log::RECONFIGURATION_SETTING))
           || (report == IN_RECONFIGURED_MASK && beginsWith(line, RECONFIGURATION_OLD));
}

/**
 * The report itself is written with the new mask, so it may have been taken for a part of the previous
 * record.
 */
void RecordSplitter::changeMask(unsigned int mask)
{
    prefix.setMask(mask);
    const std::string_view rest = bytes(reportBegin, filled);
    Fields fields;
    if (reportBegin >= recordBegin && prefix.parse(rest.substr(0, rest.find('\n')), fields)) {
        if (reportBegin == recordBegin) {
            record.fields = fields;
            record.hasPrefix = true;
        } else {
            beginRecord(reportBegin, fields, true);
        }
    }
}

void RecordSplitter::beginRecord(std::size_t begin, const Fields& fields, bool hasPrefix)
{
    if (hasRecord) {
        emit(begin);
    }
    hasRecord = true;
    recordBegin = begin;
    record.fields = fields;
    record.hasPrefix = hasPrefix;
    inStreamHeader = false;
}

/** Passes the pending record on; it ends at `end`. */
void RecordSplitter::emit(std::size_t end)
{
    record.whole = bytes(recordBegin, end);
    if (endsWith(record.whole, "\n")) {
        record.whole.remove_suffix(1);
    }
    hasRecord = false;
    inStreamHeader = false;
    if (record.hasPrefix) {
        ++recognisedCount;
    } else if (recognisedCount == 0) {
        ++leadingCount;
    }
    if (record.fields.hasPriority) {
        sink.consume(withoutPriorities(record, plainText));
    } else {
        sink.consume(record);
    }
}

void RecordSplitter::endFile()
{
    if (lineBegin != filled) {
        *prepare(1) = '\n';
        commit(1);
    }
}

void RecordSplitter::flush()
{
    if (hasRecord) {
        emit(lineBegin);
        report = NO_REPORT;
    }
}

}
