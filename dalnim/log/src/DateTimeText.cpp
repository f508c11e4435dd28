#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/DateTimeText.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/DecimalDigits.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/sys/internal/src/TimeZone.hpp>

#include <charconv>
#include <cstdint>
#include <langinfo.h>
#include <limits>

namespace com::kor::dal::nim::log {

namespace {

constexpr std::time_t END_OF_9999 = 253402300800;

/** The numbers of a date and time. */
struct Calendar
{
    /** Of four digits, except in an ISO date. */
    unsigned int year;
    /** 0 to 11. */
    unsigned int month;
    unsigned int day;
    /** 0 for Sunday. */
    unsigned int weekday;
    unsigned int hour;
    unsigned int minute;
    unsigned int second;

    /** Returns the date in UTC of a time from 1970 to 9999. */
    static Calendar utc(std::time_t time) noexcept
    {
        constexpr unsigned int SECONDS_PER_DAY = 86400;
        const auto days = static_cast<std::uint32_t>(static_cast<std::uint64_t>(time) / SECONDS_PER_DAY);
        const auto seconds = static_cast<std::uint32_t>(static_cast<std::uint64_t>(time)
                                                        - std::uint64_t(days) * SECONDS_PER_DAY);
        // C. Neri and L. Schneider, Euclidean affine functions and their application to calendar algorithms.
        // Years start in March, so that the leap day is the last day of the year.
        const std::uint32_t quarters = 4 * (days + 719468) + 3;
        const std::uint32_t century = quarters / 146097;
        const std::uint32_t quartersOfCentury = quarters % 146097 | 3;
        const std::uint64_t product = std::uint64_t(2939745) * quartersOfCentury;
        const auto yearOfCentury = static_cast<std::uint32_t>(product >> 32);
        const std::uint32_t dayOfYear = static_cast<std::uint32_t>(product) / 2939745 / 4;
        const std::uint32_t monthAndDay = 2141 * dayOfYear + 197913;
        const std::uint32_t monthFromMarch = monthAndDay >> 16;
        const bool isNextYear = dayOfYear >= 306;
        return {100 * century + yearOfCentury + (isNextYear ? 1 : 0),
                isNextYear ? monthFromMarch - 13 : monthFromMarch - 1,
                (monthAndDay & 0xFFFF) / 2141 + 1,
                (days + 4) % 7,
                seconds / 3600,
                seconds / 60 % 60,
                seconds % 60};
    }
    static Calendar of(const std::tm& time) noexcept
    {
        return {static_cast<unsigned int>(1900 + time.tm_year), static_cast<unsigned int>(time.tm_mon),
                static_cast<unsigned int>(time.tm_mday),        static_cast<unsigned int>(time.tm_wday),
                static_cast<unsigned int>(time.tm_hour),        static_cast<unsigned int>(time.tm_min),
                static_cast<unsigned int>(time.tm_sec)};
    }
};

/** Copies a string until `end`, and returns the position after it; `end` if it does not fit. */
char* writeName(char* to, const char* end, const char* name) noexcept
{
    while (*name != '\0' && to < end) {
        *to++ = *name++;
    }
    return to;
}

/** "%z": hours and minutes east of Greenwich. `separator` is written between them unless it is 0. */
char* writeZone(char* to, long secondsEast, char separator) noexcept
{
    *to++ = secondsEast < 0 ? '-' : '+';
    const auto minutes = static_cast<unsigned int>((secondsEast < 0 ? -secondsEast : secondsEast) / 60);
    to = DecimalDigits::writePair(to, minutes / 60);
    if (separator != 0) {
        *to++ = separator;
    }
    return DecimalDigits::writePair(to, minutes % 60);
}

/** Writes two digits and a character. */
char* writePairAnd(char* to, unsigned int number, char c) noexcept
{
    to = DecimalDigits::writePair(to, number);
    *to++ = c;
    return to;
}

/**
 * Formats like strftime() with LOCAL_TIME_FORMAT or UTC_TIME_FORMAT, in a fraction of its time. The names are
 * those of the locale, as there.
 * @param secondsEast  the offset of the local time, or null for UTC
 * @return the length, or 0 if long names do not fit
 */
std::size_t formatTime(char* text, std::size_t size, const Calendar& time, const long* secondsEast) noexcept
{
    constexpr std::size_t NUMBERS_LENGTH = sizeof " 31 23:59:59 +2359 9999 ";
    const char* const namesEnd = text + size - NUMBERS_LENGTH;
    // Like strftime(), not while another thread changes the locale of the process.
    // NOLINTBEGIN(concurrency-mt-unsafe)
    char* end = writeName(text, namesEnd, nl_langinfo(ABDAY_1 + static_cast<nl_item>(time.weekday)));
    *end++ = ' ';
    end = writeName(end, namesEnd, nl_langinfo(ABMON_1 + static_cast<nl_item>(time.month)));
    // NOLINTEND(concurrency-mt-unsafe)
    if (end >= namesEnd) {
        return 0;
    }
    *end++ = ' ';
    end = DecimalDigits::writePair(end, time.day);
    *end++ = ' ';
    end = DecimalDigits::writePair(end, time.hour);
    *end++ = ':';
    end = DecimalDigits::writePair(end, time.minute);
    *end++ = ':';
    end = DecimalDigits::writePair(end, time.second);
    *end++ = ' ';
    if (secondsEast != nullptr) {
        end = writeZone(end, *secondsEast, 0);
    } else {
        for (const char letter : {'U', 'T', 'C'}) {
            *end++ = letter;
        }
    }
    *end++ = ' ';
    end = DecimalDigits::writePair(end, time.year / 100);
    end = DecimalDigits::writePair(end, time.year % 100);
    return static_cast<std::size_t>(end - text);
}

/** Writes a year as four digits or, if it has more or is negative, with a sign. */
char* writeYear(char* to, long year) noexcept
{
    if (year >= 0 && year <= 9999) {
        to = DecimalDigits::writePair(to, static_cast<unsigned int>(year) / 100);
        return DecimalDigits::writePair(to, static_cast<unsigned int>(year) % 100);
    }
    if (year > 0) {
        *to++ = '+';
    }
    constexpr std::size_t LONGEST = std::numeric_limits<long>::digits10 + 2;
    return std::to_chars(to, to + LONGEST, year).ptr;
}

bool isUtc(TimeFormat format) noexcept
{
    return format < TimeFormat_OFFSET;
}

/** Returns the number of digits after the second. */
unsigned int fractionDigits(TimeFormat format) noexcept
{
    switch (format) {
    case TimeFormat_UTC_MS:
    case TimeFormat_OFFSET_MS:
        return 3;
    case TimeFormat_UTC_US:
    case TimeFormat_OFFSET_US:
        return 6;
    default:
        return 0;
    }
}

/** Formats a time in a form of ISO 8601, and returns the length. The year is that of `year`. */
std::size_t formatIso(char* text, TimeFormat format, const Calendar& time, long year,
                      unsigned int microseconds, long secondsEast) noexcept
{
    char* end = writeYear(text, year);
    *end++ = '-';
    end = writePairAnd(end, time.month + 1, '-');
    end = writePairAnd(end, time.day, 'T');
    end = writePairAnd(end, time.hour, ':');
    end = writePairAnd(end, time.minute, ':');
    end = DecimalDigits::writePair(end, time.second);
    if (const unsigned int digits = fractionDigits(format); digits != 0) {
        *end++ = '.';
        end = DecimalDigits::writePair(end, microseconds / 10000);
        end = DecimalDigits::writePair(end, microseconds / 100 % 100);
        end = DecimalDigits::writePair(end, microseconds % 100);
        end -= 6 - digits;
    }
    if (isUtc(format)) {
        *end++ = 'Z';
    } else {
        end = writeZone(end, secondsEast, ':');
    }
    return static_cast<std::size_t>(end - text);
}

}

DateTimeText::DateTimeText(TimeFormat format, std::time_t t, unsigned int microseconds)
{
    Calendar time = {};
    long year = 0;
    long secondsEast = 0;
    if (isUtc(format) && t >= 0 && t < END_OF_9999) {
        time = Calendar::utc(t);
        year = time.year;
    } else {
        std::tm brokenDown;
        if (isUtc(format)) {
            sys::System::utctime(brokenDown, t);
        } else {
            sys::System::localtime(brokenDown, t);
        }
        time = Calendar::of(brokenDown);
        // Not the number in `time`, which has no sign.
        year = 1900L + brokenDown.tm_year;
        secondsEast = brokenDown.tm_gmtoff;
    }
    length = formatIso(text, format, time, year, microseconds, secondsEast);
}

DateTimeText::DateTimeText(TimeFormat format, std::time_t t, unsigned int microseconds,
                           long secondsEast) noexcept
{
    const Calendar time = Calendar::utc(isUtc(format) ? t : t + secondsEast);
    length = formatIso(text, format, time, static_cast<long>(time.year), microseconds, secondsEast);
}

DateTimeText::DateTimeText(std::time_t t)
{
    if (t == 0) {
        t = std::time(nullptr);
    }
    // If another thread changes the setting during the call, either form is written.
    const bool local = __atomic_load_n(&LOG_LOCALTIME, __ATOMIC_RELAXED);
    if (!local && t > 0 && t < END_OF_9999) {
        length = formatTime(text, sizeof text, Calendar::utc(t), nullptr);
        if (length != 0) {
            return;
        }
    }
    format(t, local);
}

DateTimeText::DateTimeText(std::time_t t, const long* secondsEast) noexcept
{
    const std::time_t shifted = t + (secondsEast != nullptr ? *secondsEast : 0);
    length = formatTime(text, sizeof text, Calendar::utc(shifted), secondsEast);
}

void DateTimeText::format(std::time_t t, bool local)
{
    std::tm broken_down;
    if (local) {
        sys::System::localtime(broken_down, t);
    } else {
        sys::System::utctime(broken_down, t);
    }
    const int year = 1900 + broken_down.tm_year;
    length = 0;
    if (year >= 1000 && year <= 9999) {
        const long secondsEast = broken_down.tm_gmtoff;
        length = formatTime(text, sizeof text, Calendar::of(broken_down), local ? &secondsEast : nullptr);
    }
    if (length == 0) {
        const char* const format = local ? sys::internal::LOCAL_TIME_FORMAT : sys::internal::UTC_TIME_FORMAT;
        length = sys::internal::TimeZone::format(text, sizeof text, format, broken_down);
    }
}

}
