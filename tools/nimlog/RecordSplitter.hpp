#ifndef DALNIM_TOOLS_NIMLOG_RECORDSPLITTER_HPP
#define DALNIM_TOOLS_NIMLOG_RECORDSPLITTER_HPP

#include "PrefixParser.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace nimlog {

/** Receives the records of a log in order. */
class RecordSink
{
public:
    virtual ~RecordSink() = default;
    /** The views in the record are valid during the call only. */
    virtual void consume(const Record& record) = 0;
};

/**
 * Splits a log into records. A record is a line with a prefix, and the following lines without one.
 *
 * A record can also start inside a line, after a fragment whose writer was killed or whose disk was full. It
 * is recognised if its prefix has a date, and if it does not look like a quotation; see followsFragment().
 *
 * Priorities such as "<6>" in front of the lines of a record are skipped.
 *
 * The mask of fields is read from the log itself: from each stream header, and from reports of a changed
 * mask, which are themselves written with the new mask.
 */
class RecordSplitter
{
public:
    RecordSplitter(unsigned int mask, RecordSink& recordSink);

    /** Returns space for `size` bytes. The caller must call commit() with the number of bytes stored. */
    char* prepare(std::size_t size);
    void commit(std::size_t size);

    /** Ends the file: a last line without a newline is complete. */
    void endFile();
    /** Emits the pending record without waiting for further lines. */
    void flush();
    /** Returns true if a record is pending, because more of its lines may follow. */
    bool hasPending() const
    {
        return hasRecord;
    }

    /** Returns the number of records with a prefix. */
    std::uint64_t recognised() const
    {
        return recognisedCount;
    }
    /** Returns the number of lines before the first of these records. */
    std::uint64_t leading() const
    {
        return leadingCount;
    }
    /** Returns true if there are lines before the first record with a prefix, including a pending one. */
    bool hasLeading() const
    {
        return leadingCount != 0 || (recognisedCount == 0 && hasRecord && !record.hasPrefix);
    }

private:
    /** Which lines of a report of a changed mask have been read. Those of a reconfiguration have other forms.
     */
    enum ReportState { NO_REPORT, AFTER_TITLE, AFTER_OLD, IN_RECONFIGURATION, IN_RECONFIGURED_MASK };

    /** The result of searching for a prefix. */
    struct Prefix
    {
        bool isFound = false;
        bool isStreamHeader = false;
        Fields fields;
    };

    void scan();
    void processLine(std::string_view line);
    void processPart(std::size_t begin, std::string_view part, const Prefix& found);
    void parse(std::string_view line, Prefix& into);
    std::size_t findEmbedded(std::string_view line, const Prefix& outer);
    bool followsFragment(std::string_view fragment, const Prefix& outer) const;
    void continueRecord(std::size_t begin, std::string_view line);
    void watchReport(std::size_t begin, std::string_view line, std::size_t textBegin);
    bool watchReconfiguration(std::size_t begin, std::string_view line, std::size_t textBegin);
    void changeMask(unsigned int mask);
    void beginRecord(std::size_t begin, const Fields& fields, bool hasPrefix);
    void emit(std::size_t end);
    std::string_view bytes(std::size_t begin, std::size_t end) const
    {
        return {buffer.data() + begin, end - begin};
    }

    /** Result of findEmbedded(). A member, to avoid its construction for each line. */
    Prefix inner;
    PrefixParser prefix;
    PrefixParser streamHeader;
    RecordSink& sink;

    /** Input. Bytes up to `filled` are valid; those before `lineBegin` have been processed. */
    std::vector<char> buffer;
    std::size_t filled = 0;
    std::size_t lineBegin = 0;
    /** Position up to which there is no newline after `lineBegin`. */
    std::size_t searched = 0;

    /** Whether a record is pending, which `record` and `recordBegin` describe. */
    bool hasRecord = false;
    std::size_t recordBegin = 0;
    Record record = {};
    /** Text of the record without priorities. A member, to reuse its storage. */
    std::string plainText;
    bool inStreamHeader = false;

    ReportState report = NO_REPORT;
    std::size_t reportBegin = 0;

    std::uint64_t recognisedCount = 0;
    std::uint64_t leadingCount = 0;
};

}

#endif
