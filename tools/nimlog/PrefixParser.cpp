#include "PrefixParser.hpp"

#include "Severities.hpp"
#include "TimeText.hpp"

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/StreamHeader.hpp>
#include <dalnim/type/CompositeString.hpp>
#include <support/Errors.hpp>

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace nimlog {

namespace log = com::kor::dal::nim::log;

namespace {

/** Process names may contain spaces: maximum number of words in one. */
constexpr int MAX_NAME_WORDS = 8;

/** Returns the end of the word that starts at `pos`, or `pos` if there is none. */
std::size_t wordEnd(std::string_view line, std::size_t pos)
{
    return std::min(line.find(' ', pos), line.size());
}

std::size_t digitsEnd(std::string_view line, std::size_t pos)
{
    while (pos < line.size() && line[pos] >= '0' && line[pos] <= '9') {
        ++pos;
    }
    return pos;
}

}

PrefixParser::PrefixParser(unsigned int fieldMask, std::string_view prefixEnd)
    : mask(fieldMask), terminator(prefixEnd)
{
}

bool PrefixParser::hasDate() const
{
    return (mask & log::Mask_DATETIME) != 0;
}

bool PrefixParser::parse(std::string_view line, Fields& fields)
{
    fields.hasPriority = hasPriority(line);
    if (!fields.hasPriority) {
        return parseFields(line, fields);
    }
    if (!parseFields(line.substr(PRIORITY_LENGTH), fields)) {
        return false;
    }
    fields.length += PRIORITY_LENGTH;
    if ((fields.present & log::Mask_SEVERITY) == 0) {
        fields.severity = severityOfPriority(line);
    }
    return true;
}

bool PrefixParser::parseFields(std::string_view line, Fields& fields)
{
    fields.present = 0;
    std::size_t pos = 0;
    if ((mask & log::Mask_DATETIME) != 0) {
        pos = readDate(line, fields.dateTime);
        if (pos == 0) {
            return false;
        }
        fields.present |= log::Mask_DATETIME;
    }
    return parseFrom(line, pos, fields, pos == 0);
}

std::size_t PrefixParser::readDate(std::string_view line, DateTime& into)
{
    if (!lastText.empty() && line.compare(0, lastText.size(), lastText) == 0) {
        into = lastDate;
        into.clock = line.substr(static_cast<std::size_t>(lastDate.clock.data() - lastText.data()),
                                 lastDate.clock.size());
        into.zone = line.substr(static_cast<std::size_t>(lastDate.zone.data() - lastText.data()),
                                lastDate.zone.size());
        return lastText.size();
    }
    const std::size_t length = readDateTime(line, into);
    // A fraction hardly ever occurs again.
    if (length != 0 && into.when.nanoseconds == 0) {
        lastText = line.substr(0, length);
        readDateTime(lastText, lastDate);
    }
    return length;
}

/** Parses the fields after the date. */
bool PrefixParser::parseFrom(std::string_view line, std::size_t pos, Fields& fields, bool isFirst) const
{
    const auto isSelected = [this](log::Mask bit) { return (mask & bit) != 0; };
    // Consumes the space between two fields.
    const auto begin = [&] {
        const bool fits = isFirst || (pos < line.size() && line[pos] == ' ');
        pos += isFirst ? 0 : 1;
        isFirst = false;
        return fits && pos <= line.size();
    };
    const auto consume = [&](std::size_t end, std::string_view& into, log::Mask bit) {
        into = line.substr(pos, end - pos);
        fields.present |= bit;
        pos = end;
        return !into.empty();
    };
    const auto word = [&](std::string_view& into, log::Mask bit) {
        return !isSelected(bit) || (begin() && consume(wordEnd(line, pos), into, bit));
    };
    const auto number = [&](std::string_view& into, log::Mask bit) {
        return !isSelected(bit) || (begin() && consume(digitsEnd(line, pos), into, bit));
    };
    const auto fieldsAfterProcess = [&] {
        return number(fields.processId, log::Mask_PROCESSID) && number(fields.thread, log::Mask_THREADID)
               && word(fields.module, log::Mask_MODULENAME) && word(fields.severityName, log::Mask_SEVERITY)
               && (!isSelected(log::Mask_SEVERITY) || readSeverity(fields.severityName, fields.severity))
               && word(fields.source, log::Mask_SOURCEFILE) && number(fields.line, log::Mask_LINENUMBER)
               && line.compare(pos, terminator.size(), terminator) == 0;
    };

    if (!word(fields.host, log::Mask_HOSTNAME)) {
        return false;
    }
    if (!isSelected(log::Mask_PROCESSNAME)) {
        if (!fieldsAfterProcess()) {
            return false;
        }
    } else {
        if (!begin()) {
            return false;
        }
        const std::size_t nameBegin = pos;
        std::size_t nameEnd = wordEnd(line, pos);
        for (int words = 1;; ++words) {
            pos = nameBegin;
            if (!consume(nameEnd, fields.process, log::Mask_PROCESSNAME)) {
                return false;
            }
            if (fieldsAfterProcess()) {
                break;
            }
            if (words == MAX_NAME_WORDS || nameEnd == line.size()) {
                return false;
            }
            nameEnd = wordEnd(line, nameEnd + 1);
        }
    }
    fields.length = pos + terminator.size();
    return true;
}

bool readReportedMask(std::string_view text, unsigned int& into)
{
    constexpr std::string_view BEGIN = log::SHOWN_MASK_NUMBER;
    constexpr std::string_view NAMES = log::SHOWN_MASK_NAMES;
    if (text.substr(0, BEGIN.size()) != BEGIN) {
        return false;
    }
    unsigned int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + BEGIN.size(), end, number, 16);
    const std::string_view names(stop, static_cast<std::size_t>(end - stop));
    if (error != std::errc() || names.substr(0, NAMES.size()) != NAMES || number > log::Mask_ALL) {
        return false;
    }
    into = number;
    return true;
}

unsigned int parseMask(const std::string& text)
{
    const bool isHex = text.compare(0, 2, "0x") == 0;
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    unsigned int number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, isHex ? 16 : 10);
    if (error == std::errc() && stop == end && number <= log::Mask_ALL) {
        return number;
    }

    unsigned int mask = 0;
    com::kor::dal::nim::type::CompositeString names(text, ", ", true);
    for (std::string name = names.next(); !name.empty(); name = names.next()) {
        try {
            mask |= name == "ALL" ? log::Mask_ALL : log::getOutputBit(name);
        } catch (const std::out_of_range&) {
            throw nimtools::UsageError("\"" + name
                                       + "\" is not a field; a mask is NONE, ALL, a number up to 1023, or a "
                                         "list of DATETIME,SEVERITY,HOSTNAME,PROCESSNAME,PROCESSID,THREADID,"
                                         "MODULENAME,SOURCEFILE,LINENUMBER");
        }
    }
    return mask;
}

}
