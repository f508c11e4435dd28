#ifndef DALNIM_TOOLS_NIMLOG_TIMETEXT_HPP
#define DALNIM_TOOLS_NIMLOG_TIMETEXT_HPP

#include "Fields.hpp"

#include <ctime>
#include <string>

namespace nimlog {

constexpr std::time_t SECONDS_OF_HOUR = 3600;

/**
 * Reads "Sat Nov 14 15:05:20 UTC 2026", "... +0100 2026", "2026-11-14T15:05:20.123456Z" or "...+01:00" at the
 * start of a string, with any number of decimals up to nine. Returns its length, or 0.
 */
std::size_t readDateTime(std::string_view text, DateTime& into);

/**
 * Returns the first position, at or after `from`, at which readDateTime() may succeed, or npos. A match only
 * means that there is a clock with the right characters around it.
 */
std::size_t findDateTime(std::string_view text, std::size_t from);

/** Returns true if a string is a prefix of a date and time in one of these forms; it may be empty. */
bool isCutDateTime(std::string_view text);

/** Stores the start of a day, in seconds since 1970. Returns false if there is no such day. */
bool toSeconds(int year, int month, int day, std::time_t& into);

/** What a text names: a whole second, for example, if it has no fraction. */
struct TimeSpan
{
    Instant first;
    Instant last;
};

/**
 * Parses a time of the user. Without a zone, it is in UTC.
 * @throws UsageError if it is invalid
 */
TimeSpan parseTime(const std::string& text, std::time_t now);

}

#endif
