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

constexpr std::time_t SECONDS_OF_HOUR = 3600;
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

}

std::size_t readDateTime(std::string_view text, DateTime& into)
{
    if (text.size() < DATE_LENGTH + CLOCK_LENGTH + sizeof " UTC 2026" - 1) {
        return 0;
    }
    const char* const date = text.data();
    const char* const clock = date + DATE_LENGTH;
    if (date[3] != ' ' || date[7] != ' ' || date[10] != ' ' || clock[2] != ':' || clock[5] != ':'
        || clock[8] != ' ') {
        return 0;
    }
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!readMonth(date + 4, into.month) || !readTwoDigits(date + 8, into.day) || !readTwoDigits(clock, hour)
        || !readTwoDigits(clock + 3, minute) || !readTwoDigits(clock + 6, second) || into.day < 1 || hour > 23
        || minute > 59 || second > 60) {
        return 0;
    }
    into.clock = text.substr(DATE_LENGTH, CLOCK_LENGTH);

    const std::size_t zone = DATE_LENGTH + CLOCK_LENGTH + 1;
    std::time_t secondsEast = 0;
    if (text.compare(zone, 4, "UTC ") == 0) {
        into.zone = text.substr(zone, 3);
    } else {
        into.zone = text.substr(zone, sizeof "+0100" - 1);
        int hours = 0;
        int minutes = 0;
        if (into.zone.size() != 5 || (into.zone[0] != '+' && into.zone[0] != '-')
            || !readTwoDigits(into.zone.data() + 1, hours) || !readTwoDigits(into.zone.data() + 3, minutes)) {
            return 0;
        }
        secondsEast = hours * SECONDS_OF_HOUR + minutes * SECONDS_OF_MINUTE;
        secondsEast = into.zone[0] == '-' ? -secondsEast : secondsEast;
    }
    const std::size_t year = zone + into.zone.size() + 1;
    if (text.size() < year + YEAR_LENGTH || text[year - 1] != ' ') {
        return 0;
    }
    int century = 0;
    int yearOfCentury = 0;
    if (!readTwoDigits(text.data() + year, century)
        || !readTwoDigits(text.data() + year + 2, yearOfCentury)) {
        return 0;
    }
    into.year = century * 100 + yearOfCentury;
    if (!toSeconds(into.year, into.month, into.day, into.when)) {
        return 0;
    }
    into.when += hour * SECONDS_OF_HOUR + minute * SECONDS_OF_MINUTE + second - secondsEast;
    return year + YEAR_LENGTH;
}

std::size_t findDateTime(std::string_view text, std::size_t from)
{
    // Searches for the first colon of the clock, because colons are rarer than most bytes.
    constexpr std::size_t BEFORE = DATE_LENGTH + 2;
    for (std::size_t at = text.find(':', from + BEFORE); at != std::string_view::npos;
         at = text.find(':', at + 1)) {
        if (at + 3 < text.size() && text[at + 3] == ':' && isDigit(text[at - 1]) && text[at - 3] == ' ') {
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
    static const std::string_view FORM = "Aaa Aaa 00 00:00:00 ";
    if (text.size() >= FORM.size()) {
        // The rest must be a part of the zone and the year.
        return text.size() < FORM.size() + sizeof "+0100 2026" - 1
               && isCutDateTime(text.substr(0, FORM.size() - 1));
    }
    return std::equal(text.begin(), text.end(), FORM.begin(), [](char c, char form) {
        switch (form) {
        case 'A':
            return c >= 'A' && c <= 'Z';
        case 'a':
            return c >= 'a' && c <= 'z';
        case '0':
            return isDigit(c);
        default:
            return c == form;
        }
    });
}

std::time_t parseTime(const std::string& text, std::time_t now)
{
    DateTime ofRecord = {};
    if (!text.empty() && readDateTime(text, ofRecord) == text.size()) {
        return ofRecord.when;
    }

    const char* const end = text.data() + text.size();
    std::time_t number = 0;
    if (text.size() > 1 && text[0] == '@') {
        const auto [stop, error] = std::from_chars(text.data() + 1, end, number);
        if (error == std::errc() && stop == end) {
            return number;
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
                return now - number * SECONDS[unit];
            }
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
        const char* const stop = strptime(text.c_str(), format, &time);
        // strptime() accepts day 31 in every month, which timegm() would convert to a day of the next month.
        if (stop == text.c_str() + text.size()
            && time.tm_mday <= daysOfMonth(time.tm_year + 1900, time.tm_mon + 1)) {
            const long secondsEast = time.tm_gmtoff;
            return timegm(&time) - secondsEast;
        }
    }
    throw nimtools::UsageError("\"" + text
                               + "\" is not a time: use 2026-11-14T15:05:20Z, 15:05, @1794668720 or 10m");
}

}
