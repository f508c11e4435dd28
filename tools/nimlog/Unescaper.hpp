#ifndef DALNIM_TOOLS_NIMLOG_UNESCAPER_HPP
#define DALNIM_TOOLS_NIMLOG_UNESCAPER_HPP

#include "RecordSplitter.hpp"

#include <string>

namespace nimlog {

/**
 * Passes records on with the escapes `\a \b \f \n \r \v`, `\xNN` and `\\` replaced by the characters that
 * they represent. Other backslashes are kept.
 */
class Unescaper : public RecordSink
{
public:
    explicit Unescaper(RecordSink& nextSink) : next(nextSink) {}

    void consume(const Record& record) override;

private:
    RecordSink& next;
    /** The current record, unescaped. */
    std::string text;
};

}

#endif
