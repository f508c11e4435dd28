#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/DateTimeText.hpp>

#include <dalnim/log/Common.hpp>
#include <dalnim/sys/System.hpp>
#include <dalnim/sys/internal/Internal.hpp>
#include <dalnim/sys/internal/src/TimeZone.hpp>

#include <cstring>
#include <langinfo.h>

namespace com::kor::dal::nim::log {

namespace {

char* putText(char* to, const char* text)
{
    const std::size_t length = std::strlen(text);
    std::memcpy(to, text, length); // NOLINT(bugprone-not-null-terminated-result): a piece of a line
    return to + length;
}

char* putTwoDigits(char* to, int number)
{
    to[0] = static_cast<char>('0' + number / 10);
    to[1] = static_cast<char>('0' + number % 10);
    return to + 2;
}

/** "%z": hours and minutes east of Greenwich. */
char* putZone(char* to, long secondsEast)
{
    *to++ = secondsEast < 0 ? '-' : '+';
    const auto minutes = static_cast<int>((secondsEast < 0 ? -secondsEast : secondsEast) / 60);
    return putTwoDigits(putTwoDigits(to, minutes / 60), minutes % 60);
}

/**
 * What strftime() makes of LOCAL_TIME_FORMAT or UTC_TIME_FORMAT, in a fraction of its time: every
 * record has one. The names are those of the locale, as there.
 * @return the length; 0 for what does not fit: a year that has not four digits, or long names
 */
std::size_t formatTime(char* text, std::size_t size, const std::tm& time, bool local)
{
    constexpr std::size_t NUMBERS_LENGTH = sizeof " 31 23:59:59 +2359 9999 ";
    // As strftime() itself, not while another thread changes the locale of the process.
    // NOLINTBEGIN(concurrency-mt-unsafe)
    const char* const day = nl_langinfo(ABDAY_1 + time.tm_wday);
    const char* const month = nl_langinfo(ABMON_1 + time.tm_mon);
    // NOLINTEND(concurrency-mt-unsafe)
    const int year = 1900 + time.tm_year;
    if (year < 1000 || year > 9999 || std::strlen(day) + std::strlen(month) + NUMBERS_LENGTH > size) {
        return 0;
    }
    char* end = putText(text, day);
    *end++ = ' ';
    end = putText(end, month);
    *end++ = ' ';
    end = putTwoDigits(end, time.tm_mday);
    *end++ = ' ';
    end = putTwoDigits(end, time.tm_hour);
    *end++ = ':';
    end = putTwoDigits(end, time.tm_min);
    *end++ = ':';
    end = putTwoDigits(end, time.tm_sec);
    *end++ = ' ';
    end = local ? putZone(end, time.tm_gmtoff) : putText(end, "UTC");
    *end++ = ' ';
    end = putTwoDigits(putTwoDigits(end, year / 100), year % 100);
    return static_cast<std::size_t>(end - text);
}

}

DateTimeText::DateTimeText(std::time_t t)
{
    if (t == 0) {
        t = std::time(nullptr);
    }
    // Whoever changes the setting meanwhile gets either form; a torn read does not exist for it.
    const bool local = __atomic_load_n(&LOG_LOCALTIME, __ATOMIC_RELAXED);
    std::tm broken_down;
    if (local) {
        sys::System::localtime(broken_down, t);
    } else {
        sys::System::utctime(broken_down, t);
    }
    length = formatTime(text, sizeof text, broken_down, local);
    if (length == 0) {
        const char* const format = local ? sys::internal::LOCAL_TIME_FORMAT : sys::internal::UTC_TIME_FORMAT;
        length = sys::internal::TimeZone::format(text, sizeof text, format, broken_down);
    }
}

}
