#ifndef DALNIM_TOOLS_NIMLOG_RECORDSPLITTER_HPP
#define DALNIM_TOOLS_NIMLOG_RECORDSPLITTER_HPP

#include "PrefixParser.hpp"

#include <cstdint>
#include <vector>

namespace nimlog {

/** Takes the records of a log, one after the other. */
class RecordSink
{
public:
    virtual ~RecordSink() = default;
    /** The record's views are valid during the call. */
    virtual void take(const Record& record) = 0;
};

/**
 * Makes records of bytes. A record is a line with a prefix and the lines behind it that have none.
 *
 * A record also begins inside a line, after a fragment whose writer was killed or found no room, if a
 * prefix with a date follows and does not look like a quotation. See isBehindFragment().
 *
 * Which fields there are is learnt from the log: the heading of a new output names the mask, and so does
 * the report of its change, whose own prefix is of the new one already.
 */
class RecordSplitter
{
public:
    RecordSplitter(unsigned int mask, RecordSink& recordSink);

    /** Room for that many bytes, to be followed by commit() with the number that came. */
    char* prepare(std::size_t size);
    void commit(std::size_t size);

    /** A file has ended: so has its last line, with a newline or not. */
    void endFile();
    /** Nothing more is coming: hands on what waits for its continuation. */
    void flush();
    /** Whether there are lines that wait for what follows them. */
    bool isWaiting() const
    {
        return hasRecord;
    }

    /** How many records had a prefix, and how many lines stood ahead of the first of them. */
    std::uint64_t recognised() const
    {
        return recognisedCount;
    }
    std::uint64_t leading() const
    {
        return leadingCount;
    }
    /** Whether there are such lines, also if the last of them waits for what follows it. */
    bool hasLeading() const
    {
        return leadingCount != 0 || (recognisedCount == 0 && hasRecord && !record.hasPrefix);
    }

private:
    /** How far a report of a changed mask has come. */
    enum ReportState { NO_REPORT, BEHIND_TITLE, BEHIND_OLD };

    /** A prefix that was found, or none. */
    struct Prefix
    {
        bool isFound = false;
        bool isHeading = false;
        Fields fields;
    };

    void scan();
    void takeLine(std::string_view line);
    void takePart(std::size_t begin, std::string_view part, const Prefix& found);
    void parse(std::string_view line, Prefix& into);
    std::size_t findInside(std::string_view line, const Prefix& outer);
    bool isBehindFragment(std::string_view fragment, const Prefix& outer) const;
    void continueRecord(std::size_t begin, std::string_view line);
    void watchReport(std::size_t begin, std::string_view line);
    void changeMask(unsigned int mask);
    void beginRecord(std::size_t begin, const Fields& fields, bool hasPrefix);
    void emit(std::size_t end);
    std::string_view bytes(std::size_t begin, std::size_t end) const
    {
        return {buffer.data() + begin, end - begin};
    }

    /** What findInside() has found. Not made for each line: most have nothing inside. */
    Prefix inner;
    PrefixParser prefix;
    PrefixParser heading;
    RecordSink& sink;

    /** Of the buffer, bytes up to `filled` count; those in front of `lineBegin` have been looked at. */
    std::vector<char> buffer;
    std::size_t filled = 0;
    std::size_t lineBegin = 0;
    /** Where no newline has been found yet, from `lineBegin` on. */
    std::size_t searched = 0;

    /** The record that waits for its end. */
    bool hasRecord = false;
    std::size_t recordBegin = 0;
    Record record = {};
    bool inHeading = false;

    ReportState report = NO_REPORT;
    std::size_t reportBegin = 0;

    std::uint64_t recognisedCount = 0;
    std::uint64_t leadingCount = 0;
};

}

#endif
