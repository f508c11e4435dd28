#ifndef DALNIM_TOOLS_NIMLOG_TIMETEXT_HPP
#define DALNIM_TOOLS_NIMLOG_TIMETEXT_HPP

#include "Fields.hpp"

#include <string>

namespace nimlog {

/** Reads "Sat Nov 14 15:05:20 UTC 2026" or "... +0100 2026" in front of a text; gives its length, or 0. */
std::size_t readDateTime(std::string_view text, DateTime& into);

/**
 * Returns the first place from `from` on at which readDateTime() may succeed; npos if there is none. There
 * may be no more than a clock with the right distances around it.
 */
std::size_t findDateTime(std::string_view text, std::size_t from);

/** Whether a text is a date and time of that form that was cut off at its end. An empty one is. */
bool isCutDateTime(std::string_view text);

/** A time as a user writes it; what has no zone is UTC. Throws UsageError. */
std::time_t parseTime(const std::string& text, std::time_t now);

}

#endif
