#include "TimeText.hpp"

#include <support/Errors.hpp>

#include <algorithm>
#include <array>
#include <charconv>

namespace nimlog {

namespace {

constexpr std::size_t DATE_LENGTH = sizeof "Sat Nov 14 " - 1;
constexpr std::size_t CLOCK_LENGTH = sizeof "15:05:20" - 1;
constexpr std::size_t YEAR_LENGTH = 4;
constexpr std::size_t ISO_DATE_LENGTH = sizeof "2026-11-14T" - 1;
// The clock has the same position in both forms.
static_assert(DATE_LENGTH == ISO_DATE_LENGTH);
constexpr std::size_t MAX_DECIMALS = 9;

constexpr int NANOSECONDS_OF_SECOND = 1000000000;

constexpr std::time_t SECONDS_OF_MINUTE = 60;
constexpr std::time_t SECONDS_OF_DAY = 86400;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/** Reads two digits. Returns false if there are none. */
bool readTwoDigits(const char* at, int& into)
{
    into = (at[0] - '0') * 10 + (at[1] - '0');
    return isDigit(at[0]) && isDigit(at[1]);
}

/** Reads the abbreviated name of a month as a number from 1. Returns false if it is none. */
bool readMonth(const char* name, int& into)
{
    static const std::string_view NAMES = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::size_t at = NAMES.find(std::string_view(name, 3));
    into = static_cast<int>(at / 3) + 1;
    return at != std::string_view::npos && at % 3 == 0;
}

int daysOfMonth(int year, int month)
{
    static const std::array<int, 12> DAYS = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool isLeapYear = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    return month == 2 && isLeapYear ? 29 : DAYS[static_cast<std::size_t>(month - 1)];
}

/** Returns the days since 1 January 1970. The computation starts the year on 1 March. */
std::time_t daysSinceEpoch(int year, int month, int day)
{
    const int years = month > 2 ? year : year - 1;
    const int dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int days = years * 365 + years / 4 - years / 100 + years / 400 + dayOfYear;
    return days - 719468;
}

/** Reads a time of day such as "15:05:20". Returns false if it is none. */
bool readClock(const char* clock, std::time_t& seconds)
{
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (clock[2] != ':' || clock[5] != ':' || !readTwoDigits(clock, hour) || !readTwoDigits(clock + 3, minute)
        || !readTwoDigits(clock + 6, second) || hour > 23 || minute > 59 || second > 60) {
        return false;
    }
    seconds = hour * SECONDS_OF_HOUR + minute * SECONDS_OF_MINUTE + second;
    return true;
}

/** Reads a zone such as "+0100" or "+01:00". Returns false if it is none. */
bool readZone(std::string_view zone, std::string_view separator, std::time_t& secondsEast)
{
    int hours = 0;
    int minutes = 0;
    const std::size_t minutesAt = 3 + separator.size();
    if (zone.size() != minutesAt + 2 || (zone[0] != '+' && zone[0] != '-')
        || zone.substr(3, separator.size()) != separator || !readTwoDigits(zone.data() + 1, hours)
        || !readTwoDigits(zone.data() + minutesAt, minutes)) {
        return false;
    }
    secondsEast = hours * SECONDS_OF_HOUR + minutes * SECONDS_OF_MINUTE;
    secondsEast = zone[0] == '-' ? -secondsEast : secondsEast;
    return true;
}

std::size_t digitsAt(std::string_view text, std::size_t from)
{
    std::size_t end = from;
    while (end < text.size() && isDigit(text[end])) {
        ++end;
    }
    return end - from;
}

/** Returns the span of time that a fraction with these decimals names. */
TimeSpan spanOf(std::time_t seconds, std::string_view decimals)
{
    int nanoseconds = 0;
    int unit = NANOSECONDS_OF_SECOND;
    for (const char decimal : decimals) {
        unit /= 10;
        nanoseconds += (decimal - '0') * unit;
    }
    return {{seconds, nanoseconds}, {seconds, nanoseconds + unit - 1}};
}

/** Returns the decimals of a time of day. */
std::string_view decimalsOf(std::string_view clock)
{
    return clock.substr(std::min(CLOCK_LENGTH + 1, clock.size()));
}

/** Reads "2026-11-14T15:05:20.123456Z" or "...+01:00". */
std::size_t readIsoDateTime(std::string_view text, DateTime& into)
{
    if (text.size() < ISO_DATE_LENGTH + CLOCK_LENGTH + 1) {
        return 0;
    }
    const char* const date = text.data();
    int century = 0;
    int yearOfCentury = 0;
    std::time_t ofDay = 0;
    if (date[4] != '-' || date[7] != '-' || date[10] != 'T' || !readTwoDigits(date, century)
        || !readTwoDigits(date + 2, yearOfCentury) || !readTwoDigits(date + 5, into.month)
        || !readTwoDigits(date + 8, into.day) || !readClock(date + ISO_DATE_LENGTH, ofDay)) {
        return 0;
    }
    into.year = century * 100 + yearOfCentury;
    std::time_t day = 0;
    if (!toSeconds(into.year, into.month, into.day, day)) {
        return 0;
    }
    std::size_t end = ISO_DATE_LENGTH + CLOCK_LENGTH;
    if (text[end] == '.') {
        const std::size_t decimals = digitsAt(text, end + 1);
        if (decimals == 0 || decimals > MAX_DECIMALS) {
            return 0;
        }
        end += 1 + decimals;
    }
    into.clock = text.substr(ISO_DATE_LENGTH, end - ISO_DATE_LENGTH);
    std::time_t secondsEast = 0;
    if (text.compare(end, 1, "Z") == 0) {
        into.zone = text.substr(end, 1);
    } else {
        into.zone = text.substr(end, sizeof "+01:00" - 1);
        if (!readZone(into.zone, ":", secondsEast)) {
            return 0;
        }
    }
    into.when = spanOf(day + ofDay - secondsEast, decimalsOf(into.clock)).first;
    return end + into.zone.size();
}

}

std::size_t readDateTime(std::string_view text, DateTime& into)
{
    if (!text.empty() && isDigit(text[0])) {
        return readIsoDateTime(text, into);
    }
    if (text.size() < DATE_LENGTH + CLOCK_LENGTH + sizeof " UTC 2026" - 1) {
        return 0;
    }
    const char* const date = text.data();
    const char* const clock = date + DATE_LENGTH;
    std::time_t ofDay = 0;
    if (date[3] != ' ' || date[7] != ' ' || date[10] != ' ' || clock[8] != ' '
        || !readMonth(date + 4, into.month) || !readTwoDigits(date + 8, into.day)
        || !readClock(clock, ofDay)) {
        return 0;
    }
    into.clock = text.substr(DATE_LENGTH, CLOCK_LENGTH);

    const std::size_t zone = DATE_LENGTH + CLOCK_LENGTH + 1;
    std::time_t secondsEast = 0;
    if (text.compare(zone, 4, "UTC ") == 0) {
        into.zone = text.substr(zone, 3);
    } else {
        into.zone = text.substr(zone, sizeof "+0100" - 1);
        if (!readZone(into.zone, "", secondsEast)) {
            return 0;
        }
    }
    const std::size_t year = zone + into.zone.size() + 1;
    if (text.size() < year + YEAR_LENGTH || text[year - 1] != ' ') {
        return 0;
    }
    int century = 0;
    int yearOfCentury = 0;
    std::time_t day = 0;
    if (!readTwoDigits(text.data() + year, century)
        || !readTwoDigits(text.data() + year + 2, yearOfCentury)) {
        return 0;
    }
    into.year = century * 100 + yearOfCentury;
    if (!toSeconds(into.year, into.month, into.day, day)) {
        return 0;
    }
    into.when = {day + ofDay - secondsEast, 0};
    return year + YEAR_LENGTH;
}

std::size_t findDateTime(std::string_view text, std::size_t from)
{
    // Searches for the first colon of the clock, because colons are rarer than most bytes.
    constexpr std::size_t BEFORE = DATE_LENGTH + 2;
    for (std::size_t at = text.find(':', from + BEFORE); at != std::string_view::npos;
         at = text.find(':', at + 1)) {
        if (at + 3 < text.size() && text[at + 3] == ':' && isDigit(text[at - 1])
            && (text[at - 3] == ' ' || text[at - 3] == 'T')) {
            return at - BEFORE;
        }
    }
    return std::string_view::npos;
}

bool toSeconds(int year, int month, int day, std::time_t& into)
{
    if (month < 1 || month > 12 || day < 1 || day > daysOfMonth(year, month)) {
        return false;
    }
    into = daysSinceEpoch(year, month, day) * SECONDS_OF_DAY;
    return true;
}

bool isCutDateTime(std::string_view text)
{
    const bool isIso = !text.empty() && isDigit(text[0]);
    const std::string_view form = isIso ? "0000-00-00T00:00:00" : "Aaa Aaa 00 00:00:00 ";
    if (text.size() >= form.size()) {
        // The rest must be a part of the zone and the year, or of the fraction and the zone.
        const std::size_t rest = isIso ? sizeof ".123456789+01:00" - 1 : sizeof "+0100 2026" - 1;
        return text.size() < form.size() + rest && isCutDateTime(text.substr(0, form.size() - 1));
    }
    return std::equal(text.begin(), text.end(), form.begin(), [](char c, char expected) {
        switch (expected) {
        case 'A':
            return c >= 'A' && c <= 'Z';
        case 'a':
            return c >= 'a' && c <= 'z';
        case '0':
            return isDigit(c);
        default:
            return c == expected;
        }
    });
}

TimeSpan parseTime(const std::string& text, std::time_t now)
{
    DateTime ofRecord = {};
    if (!text.empty() && readDateTime(text, ofRecord) == text.size()) {
        return spanOf(ofRecord.when.seconds, decimalsOf(ofRecord.clock));
    }

    const char* const end = text.data() + text.size();
    std::time_t number = 0;
    if (text.size() > 1 && text[0] == '@') {
        const auto [stop, error] = std::from_chars(text.data() + 1, end, number);
        if (error == std::errc() && stop == end) {
            return spanOf(number, "");
        }
    }
    if (!text.empty() && isDigit(text[0])) {
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error == std::errc() && stop + 1 == end) {
            static const std::string_view UNITS = "smhd";
            static const std::array<std::time_t, 4> SECONDS = {1, SECONDS_OF_MINUTE, SECONDS_OF_HOUR,
                                                               SECONDS_OF_DAY};
            const std::size_t unit = UNITS.find(*stop);
            if (unit != std::string_view::npos && number <= now / SECONDS[unit]) {
                return spanOf(now - number * SECONDS[unit], "");
            }
        }
    }
    std::string withoutFraction = text;
    std::string decimals;
    const std::size_t dot = text.find('.');
    if (dot != std::string::npos && dot >= CLOCK_LENGTH && text[dot - 3] == ':' && text[dot - 6] == ':') {
        decimals = text.substr(dot + 1, digitsAt(text, dot + 1));
        if (!decimals.empty() && decimals.size() <= MAX_DECIMALS) {
            withoutFraction.erase(dot, 1 + decimals.size());
        }
    }
    for (const char* const format :
         {"%Y-%m-%dT%H:%M:%S%z", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M%z", "%Y-%m-%dT%H:%M",
          "%Y-%m-%d %H:%M:%S %z", "%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M %z", "%Y-%m-%d %H:%M", "%Y-%m-%d",
          "%H:%M:%S", "%H:%M"}) {
        std::tm time = {};
        // Missing parts default to midnight and today.
        gmtime_r(&now, &time);
        time.tm_hour = time.tm_min = time.tm_sec = 0;
        time.tm_gmtoff = 0;
        const char* const stop = strptime(withoutFraction.c_str(), format, &time);
        // strptime() accepts day 31 in every month, which timegm() would convert to a day of the next month.
        if (stop == withoutFraction.c_str() + withoutFraction.size()
            && time.tm_mday <= daysOfMonth(time.tm_year + 1900, time.tm_mon + 1)) {
            const long secondsEast = time.tm_gmtoff;
            return spanOf(timegm(&time) - secondsEast, decimals);
        }
    }
    throw nimtools::UsageError("\"" + text
                               + "\" is not a time: use 2026-11-14T15:05:20Z, 15:05, @1794668720 or 10m");
}

}
