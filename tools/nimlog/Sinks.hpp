#ifndef DALNIM_TOOLS_NIMLOG_SINKS_HPP
#define DALNIM_TOOLS_NIMLOG_SINKS_HPP

#include "Options.hpp"
#include "RecordSplitter.hpp"

#include <support/Output.hpp>

#include <map>

namespace nimlog {

/**
 * Prints records unchanged, optionally with coloured severities. On a terminal, control characters are made
 * visible, since they could be commands to it.
 */
class TextSink : public RecordSink
{
public:
    TextSink(nimtools::Output& output, bool isColored, bool isForTerminal)
        : out(output), color(isColored), toTerminal(isForTerminal)
    {
    }

    void consume(const Record& record) override;

private:
    void write(std::string_view text);

    nimtools::Output& out;
    const bool color;
    const bool toTerminal;
    std::string visible;
};

/** Prints each record as a JSON object on one line. */
class JsonSink : public RecordSink
{
public:
    explicit JsonSink(nimtools::Output& output) : out(output) {}

    void consume(const Record& record) override;

private:
    void appendFields(std::string_view text);

    nimtools::Output& out;
    std::string line;
    /** Names of the fields of the current record. */
    std::vector<std::string_view> names;
};

/** Counts records by a field, and prints the counts on request. */
class CountSink : public RecordSink
{
public:
    explicit CountSink(CountBy countedField);

    void consume(const Record& record) override;
    /** @param isForTerminal whether to make control characters visible, as TextSink does */
    void write(nimtools::Output& out, bool json, bool isForTerminal) const;

    /** Returns the number of records without the field that is counted. */
    std::uint64_t missingFields() const
    {
        return missingFieldsCount;
    }

private:
    typedef std::map<std::string, std::uint64_t, std::less<>> Counts;

    std::string_view keyOf(const Fields& fields);
    std::vector<const Counts::value_type*> inOrder() const;

    const CountBy countBy;
    Counts counts;
    /** Most recent hour since 1970, and its text. */
    std::time_t hour = -1;
    std::string hourText;
    std::uint64_t missingFieldsCount = 0;
};

}

#endif
