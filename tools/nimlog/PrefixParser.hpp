#ifndef DALNIM_TOOLS_NIMLOG_PREFIXPARSER_HPP
#define DALNIM_TOOLS_NIMLOG_PREFIXPARSER_HPP

#include "Fields.hpp"

#include <string>
#include <string_view>

namespace nimlog {

/** Parses prefixes that consist of given fields. */
class PrefixParser
{
public:
    /**
     * @param fieldMask bits of log::Mask
     * @param prefixEnd the text after the last field
     */
    PrefixParser(unsigned int fieldMask, std::string_view prefixEnd);

    /** Sets the mask for the lines that follow. */
    void setMask(unsigned int fieldMask)
    {
        mask = fieldMask;
    }

    /** Returns true if prefixes start with a date, which other text rarely contains. */
    bool hasDate() const;

    /**
     * Returns true if the line starts with a prefix, also after a priority such as "<6>". Otherwise, the
     * content of `fields` is unspecified.
     */
    bool parse(std::string_view line, Fields& fields);

private:
    bool parseFields(std::string_view line, Fields& fields);
    bool parseFrom(std::string_view line, std::size_t pos, Fields& fields, bool isFirst) const;
    std::size_t readDate(std::string_view line, DateTime& into);

    unsigned int mask;
    const std::string_view terminator;
    /** The date of the previous line, cached because most lines have the same date as the previous one. */
    std::string lastText;
    DateTime lastDate = {};
};

/** Reads a mask as the log writes it, as in "0x14 [SEVERITY,PROCESSNAME]". Returns false if it is none. */
bool readReportedMask(std::string_view text, unsigned int& into);

/**
 * Parses a mask of the user: names separated by commas or spaces, or a number.
 * @throws UsageError if it is invalid
 */
unsigned int parseMask(const std::string& text);

}

#endif
