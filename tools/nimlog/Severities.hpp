#ifndef DALNIM_TOOLS_NIMLOG_SEVERITIES_HPP
#define DALNIM_TOOLS_NIMLOG_SEVERITIES_HPP

#include "Fields.hpp"

#include <string>
#include <string_view>

namespace nimlog {

/** Reads the name of a severity as the log writes it. Returns false if it is none. */
bool readSeverity(std::string_view name, int& into);

/** Returns the name of the severity of a record, which must have one. */
std::string_view severityNameOf(const Fields& fields);

/** Length of a priority such as "<6>". */
constexpr std::size_t PRIORITY_LENGTH = 3;

/** Returns true if a line starts with a priority, as in sd-daemon(3). */
inline bool hasPriority(std::string_view line)
{
    return line.size() >= PRIORITY_LENGTH && line[0] == '<' && line[1] >= '0' && line[1] <= '7'
           && line[2] == '>';
}

/** Returns a line without its priority, if it has one. */
inline std::string_view withoutPriority(std::string_view line)
{
    return line.substr(hasPriority(line) ? PRIORITY_LENGTH : 0);
}

/** Returns the severity of a line that starts with a priority. */
int severityOfPriority(std::string_view line);

/**
 * Returns a record without the priorities of its lines, of which the first one must have a priority.
 * @param storage will contain its text
 */
Record withoutPriorities(const Record& record, std::string& storage);

}

#endif
