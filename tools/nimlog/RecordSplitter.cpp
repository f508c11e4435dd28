#include "RecordSplitter.hpp"

#include "TimeText.hpp"

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/StreamHeader.hpp>

#include <cstring>

namespace nimlog {

namespace log = com::kor::dal::nim::log;

namespace {

/** A record is no longer than this: what follows is a record of its own, without a prefix. */
constexpr std::size_t LONGEST_RECORD = 16UL * 1024 * 1024;

/** What a log writes for a line break if it escapes control characters. */
constexpr std::string_view ESCAPED_NEWLINE = "\\n";

constexpr std::string_view HEADER_LABEL = log::STREAM_HEADER_OUTPUT_MASK;
constexpr std::string_view REPORT_TITLE = log::CHANGE_REPORT_OF_OUTPUT_MASK;
constexpr std::string_view REPORT_OLD = log::CHANGE_REPORT_OLD_VALUE;
constexpr std::string_view REPORT_NEW = log::CHANGE_REPORT_NEW_VALUE;

bool beginsWith(std::string_view text, std::string_view begin)
{
    return text.substr(0, begin.size()) == begin;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/** Moves the views with the buffer that they are into. */
void move(Fields& fields, const char* from, const char* to)
{
    forEachView(fields, [=](std::string_view& view) {
        view = std::string_view(to + (view.data() - from), view.size());
    });
}

/** Finds the text after a line break and a label, in a record whose line breaks are escaped; null if there is
 * none. */
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

/** Whether the line ends with the title, or the rest of the record follows with its line breaks escaped. */
bool hasTitle(std::string_view line, std::string_view title)
{
    const std::size_t at = line.find(title);
    return at != std::string_view::npos
           && (at + title.size() == line.size()
               || beginsWith(line.substr(at + title.size()), ESCAPED_NEWLINE));
}

}

RecordSplitter::RecordSplitter(unsigned int mask, RecordSink& recordSink)
    : prefix(mask, log::TERMINATOR), heading(log::STREAM_HEADER_MASK, log::STREAM_HEADER_TERMINATOR),
      sink(recordSink)
{
}

char* RecordSplitter::prepare(std::size_t size)
{
    // What has been handed on goes; the record in hand stays in one piece.
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
        move(record.fields, buffer.data() + kept, target);
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
            if (filled - lineBegin > LONGEST_RECORD) {
                takeLine(bytes(lineBegin, filled));
                lineBegin = filled;
                emit(filled);
            }
            return;
        }
        const auto end = static_cast<std::size_t>(static_cast<const char*>(found) - buffer.data());
        takeLine(bytes(lineBegin, end));
        lineBegin = searched = end + 1;
    }
}

/** A line may hold several records: each but the last was torn off before its newline. */
void RecordSplitter::takeLine(std::string_view line)
{
    std::size_t begin = lineBegin;
    Prefix outer;
    parse(line, outer);
    for (std::size_t inside; (inside = findInside(line, outer)) != std::string_view::npos;) {
        // A prefix that reaches into the next record was none: it took the fields of that for its own.
        outer.isFound = outer.isFound && outer.fields.length <= inside;
        takePart(begin, line.substr(0, inside), outer);
        begin += inside;
        line.remove_prefix(inside);
        outer = inner;
    }
    takePart(begin, line, outer);
}

void RecordSplitter::takePart(std::size_t begin, std::string_view part, const Prefix& found)
{
    if (found.isFound) {
        beginRecord(begin, found.fields, true);
        inHeading = found.isHeading;
        unsigned int mask = 0;
        if (inHeading && readShownMask(behindEscaped(part, HEADER_LABEL), mask)) {
            prefix.setMask(mask);
        }
    } else {
        continueRecord(begin, part);
    }
    watchReport(begin, part);
}

void RecordSplitter::parse(std::string_view line, Prefix& into)
{
    // The prefix of a heading ends in another way than that of a record.
    into.isHeading = false;
    into.isFound = prefix.parse(line, into.fields);
    if (!into.isFound && hasTitle(line, log::STREAM_HEADER_TITLE)) {
        into.isFound = into.isHeading = heading.parse(line, into.fields);
    }
}

/** Finds the first record that begins inside a line, and its prefix; npos if there is none. */
std::size_t RecordSplitter::findInside(std::string_view line, const Prefix& outer)
{
    if (!prefix.hasDate() && !hasTitle(line, log::STREAM_HEADER_TITLE)) {
        return std::string_view::npos;
    }
    // The name of a process may contain blanks, and so may have swallowed the date of the next record.
    const bool isWholePrefix = outer.isFound
                               && ((outer.fields.present & log::Mask_PROCESSNAME) == 0
                                   || outer.fields.process.find(':') == std::string_view::npos);
    std::size_t from = isWholePrefix ? outer.fields.length : 1;
    for (std::size_t at; (at = findDateTime(line, from)) != std::string_view::npos; from = at + 1) {
        parse(line.substr(at), inner);
        // A prefix without a date would begin anywhere.
        if (inner.isFound && (inner.isHeading || prefix.hasDate())
            && isBehindFragment(line.substr(0, at), outer)) {
            return at;
        }
    }
    return std::string_view::npos;
}

/**
 * Whether the text in front of a prefix is a fragment, and not the text of a record that quotes another
 * one. A quotation is older than what quotes it. Of the same second, it follows a blank or punctuation.
 */
bool RecordSplitter::isBehindFragment(std::string_view fragment, const Prefix& outer) const
{
    const bool isInsidePrefix = outer.isFound && fragment.size() < outer.fields.length;
    const bool isOfRecord = outer.isFound || (hasRecord && record.hasPrefix);
    const Fields& fields = outer.isFound ? outer.fields : record.fields;
    if (inner.isHeading || !isOfRecord || isInsidePrefix || (fields.present & log::Mask_DATETIME) == 0) {
        return true;
    }
    DateTime cutPrefix = {};
    if (!outer.isFound && (isCutDateTime(fragment) || readDateTime(fragment, cutPrefix) != 0)) {
        return true;
    }
    if (inner.fields.dateTime.when != fields.dateTime.when) {
        return inner.fields.dateTime.when > fields.dateTime.when;
    }
    return std::string_view(" \t\"'`([{<>|:=,;").find(fragment.back()) == std::string_view::npos;
}

/** A line without a prefix belongs to the record before it, if there is one that may have more lines. */
void RecordSplitter::continueRecord(std::size_t begin, std::string_view line)
{
    const bool isTooLong = hasRecord && begin - recordBegin > LONGEST_RECORD;
    const bool isReported = report != NO_REPORT && begin - reportBegin < LONGEST_RECORD;
    if (!hasRecord || isTooLong || (!record.hasPrefix && !isReported)) {
        beginRecord(begin, Fields(), false);
    }
    unsigned int mask = 0;
    if (inHeading && beginsWith(line, HEADER_LABEL)
        && readShownMask(line.substr(HEADER_LABEL.size()), mask)) {
        prefix.setMask(mask);
    }
}

/** The title of the report, the old mask and the new mask are three lines. */
void RecordSplitter::watchReport(std::size_t begin, std::string_view line)
{
    unsigned int mask = 0;
    if (endsWith(line, REPORT_TITLE)) {
        report = BEHIND_TITLE;
        reportBegin = begin;
    } else if (line.size() > REPORT_TITLE.size() && endsWith(line, "]") && hasTitle(line, REPORT_TITLE)) {
        reportBegin = begin;
        if (readShownMask(behindEscaped(line, REPORT_NEW), mask)) {
            changeMask(mask);
        }
        report = NO_REPORT;
    } else if (report == BEHIND_TITLE && beginsWith(line, REPORT_OLD)) {
        report = BEHIND_OLD;
    } else {
        if (report == BEHIND_OLD && beginsWith(line, REPORT_NEW)
            && readShownMask(line.substr(REPORT_NEW.size()), mask)) {
            changeMask(mask);
        }
        report = NO_REPORT;
    }
}

/** The report is of the new mask: where it looked like a part of the record before it, it begins here. */
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
    inHeading = false;
}

/** Hands on the record in hand, which ends there. */
void RecordSplitter::emit(std::size_t end)
{
    record.whole = bytes(recordBegin, end);
    if (endsWith(record.whole, "\n")) {
        record.whole.remove_suffix(1);
    }
    hasRecord = false;
    inHeading = false;
    if (record.hasPrefix) {
        ++recognisedCount;
    } else if (recognisedCount == 0) {
        ++leadingCount;
    }
    sink.take(record);
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
