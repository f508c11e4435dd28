#include <qv/pmx/time.h>

#include <cerrno>
#include <limits>

namespace {

constexpr time_t SECONDS_PER_DAY = 86400;
constexpr time_t END_OF_9999 = 253402300800;

/**
 * Returns the calendar time of a time from 1970 to 9999. Years start in March, so that the leap day is the
 * last day of the year (H. Hinnant, chrono-Compatible Low-Level Date Algorithms, civil_from_days).
 */
tm utcTime(time_t time) noexcept
{
    const auto second = static_cast<int>(time % SECONDS_PER_DAY);
    const auto days = static_cast<int>(time / SECONDS_PER_DAY);
    const int day = days + 719468;
    const int era = day / 146097;
    const int dayOfEra = day % 146097;
    const int yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int dayFromMarch = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int monthFromMarch = (5 * dayFromMarch + 2) / 153;
    const int month = monthFromMarch < 10 ? monthFromMarch + 2 : monthFromMarch - 10;
    const int year = yearOfEra + era * 400 + (month < 2 ? 1 : 0);
    const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);

    tm result = {};
    result.tm_sec = second % 60;
    result.tm_min = second / 60 % 60;
    result.tm_hour = second / 3600;
    result.tm_mday = dayFromMarch - (153 * monthFromMarch + 2) / 5 + 1;
    result.tm_mon = month;
    result.tm_year = year - 1900;
    result.tm_wday = (days + 4) % 7;
    result.tm_yday = month < 2 ? dayFromMarch - 306 : dayFromMarch + 59 + (leap ? 1 : 0);
    result.tm_zone = "GMT";
    return result;
}

}

qv_err_t qv_si_gettime(si_timespec_t* now) noexcept
{
    timespec time;
    if (clock_gettime(CLOCK_REALTIME, &time) != 0) {
        return errno;
    }
    if (time.tv_sec > std::numeric_limits<si_int32_t>::max()) {
        *now = {std::numeric_limits<si_int32_t>::max(), 999999999};
        return EOVERFLOW;
    }
    *now = {static_cast<si_int32_t>(time.tv_sec), static_cast<si_int32_t>(time.tv_nsec)};
    return 0;
}

qv_err_t qv_si_gmtime(time_t time, struct tm* result) noexcept
{
    // gmtime_r() acquires the time zone lock of the C library, so it is used only outside these years.
    if (time < 0 || time >= END_OF_9999) {
        return gmtime_r(&time, result) != nullptr ? 0 : errno;
    }
    *result = utcTime(time);
    return 0;
}

qv_err_t qv_si_localtime(time_t time, struct tm* result) noexcept
{
    return localtime_r(&time, result) != nullptr ? 0 : errno;
}

qv_err_t qv_si_nanosleep(const si_timespec_t* request, si_timespec_t* remaining)
{
    const timespec interval = {request->seconds, request->nanoseconds};
    timespec rest = {};
    const int status = clock_nanosleep(CLOCK_MONOTONIC, 0, &interval, &rest);
    if (remaining != nullptr) {
        *remaining = {static_cast<si_int32_t>(rest.tv_sec), static_cast<si_int32_t>(rest.tv_nsec)};
    }
    return status;
}
