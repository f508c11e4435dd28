#ifndef DALNIM_TOOLS_NIMLOG_SINKS_HPP
#define DALNIM_TOOLS_NIMLOG_SINKS_HPP

#include "Options.hpp"
#include "RecordSplitter.hpp"

#include <support/Output.hpp>

#include <map>

namespace nimlog {

/**
 * Writes records as they are, perhaps with the severity in colour. On a terminal their control characters,
 * which might be commands to it, are made visible.
 */
class TextSink : public RecordSink
{
public:
    TextSink(nimtools::Output& output, bool isColored, bool isForTerminal)
        : out(output), color(isColored), toTerminal(isForTerminal)
    {
    }

    void take(const Record& record) override;

private:
    void write(std::string_view text);

    nimtools::Output& out;
    const bool color;
    const bool toTerminal;
    std::string visible;
};

/** Writes an object of JSON a line for each record. */
class JsonSink : public RecordSink
{
public:
    explicit JsonSink(nimtools::Output& output) : out(output) {}

    void take(const Record& record) override;

private:
    nimtools::Output& out;
    std::string line;
};

/** Counts records, and writes how many there were when that is asked for. */
class CountSink : public RecordSink
{
public:
    explicit CountSink(CountBy countedField);

    void take(const Record& record) override;
    /** @param isForTerminal makes control characters visible, as TextSink does */
    void write(nimtools::Output& out, bool json, bool isForTerminal) const;

    /** How many records have none of the field that is counted. */
    std::uint64_t lacking() const
    {
        return lackingCount;
    }

private:
    typedef std::map<std::string, std::uint64_t, std::less<>> Counts;

    std::string_view keyOf(const Fields& fields);
    std::vector<const Counts::value_type*> inOrder() const;

    const CountBy countBy;
    Counts counts;
    /** The hour that was written last, and its text. */
    std::time_t hour = -1;
    std::string hourText;
    std::uint64_t lackingCount = 0;
};

}

#endif
