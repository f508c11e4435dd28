#ifndef DALNIM_TOOLS_NIMLOG_UNESCAPER_HPP
#define DALNIM_TOOLS_NIMLOG_UNESCAPER_HPP

#include "RecordSplitter.hpp"

#include <string>

namespace nimlog {

/**
 * Undoes the escapes of a log that writes control characters as `\a \b \f \n \r \v` and `\xNN`, and the
 * backslash as `\\`, and hands the records on. What is no such escape stays as it is.
 */
class Unescaper : public RecordSink
{
public:
    explicit Unescaper(RecordSink& nextSink) : next(nextSink) {}

    void take(const Record& record) override;

private:
    RecordSink& next;
    /** The current record, with the escapes undone. */
    std::string text;
};

}

#endif
