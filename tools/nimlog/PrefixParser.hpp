#ifndef DALNIM_TOOLS_NIMLOG_PREFIXPARSER_HPP
#define DALNIM_TOOLS_NIMLOG_PREFIXPARSER_HPP

#include "Fields.hpp"

#include <string>
#include <string_view>

namespace nimlog {

/** Recognises lines that begin with a prefix of certain fields. */
class PrefixParser
{
public:
    /** @param fieldMask   bits of log::Mask
     *  @param prefixEnd   what stands behind the last field */
    PrefixParser(unsigned int fieldMask, std::string_view prefixEnd);

    /** A new mask for the lines that come now. */
    void setMask(unsigned int fieldMask)
    {
        mask = fieldMask;
    }

    /** Whether a prefix begins with a date, which text hardly contains by chance. */
    bool hasDate() const;

    /** Whether the line begins with such a prefix; only then are the fields to be looked at. */
    bool parse(std::string_view line, Fields& fields);

private:
    bool parseFrom(std::string_view line, std::size_t pos, Fields& fields, bool isFirst) const;
    std::size_t readDate(std::string_view line, DateTime& into);

    unsigned int mask;
    const std::string_view terminator;
    /** The date of the line before: most have the same. */
    std::string lastText;
    DateTime lastDate = {};
};

/** The mask in "0x14 [SEVERITY,PROCESSNAME]", as the log itself writes it; false if that is none. */
bool readShownMask(std::string_view text, unsigned int& into);

/** A mask as a user writes it: names with commas or blanks between them, or a number. Throws UsageError. */
unsigned int parseMask(const std::string& text);

}

#endif
