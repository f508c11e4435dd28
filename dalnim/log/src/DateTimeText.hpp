#ifndef DALNIM_LOG_SRC_DATETIMETEXT_HPP
#define DALNIM_LOG_SRC_DATETIMETEXT_HPP

#include <dalnim/log/TimeFormat.hpp>

#include <cstddef>
#include <ctime>
#include <string_view>

namespace com::kor::dal::nim::log {

/** The date and time of a record. Exceptions are those of getDateTime(). */
class DateTimeText
{
public:
    /** As getDateTime() returns it. */
    explicit DateTimeText(std::time_t t);
    /**
     * For signal handlers: acquires no lock.
     * @param secondsEast  the offset of the local time in seconds, or null for UTC
     */
    DateTimeText(std::time_t t, const long* secondsEast) noexcept;
    /**
     * In a form of ISO 8601. Years before 0 or after 9999 have a sign and as many digits as they need.
     * @param format        not TimeFormat_LOCAL
     * @param microseconds  the fraction; less than a million
     */
    DateTimeText(TimeFormat format, std::time_t t, unsigned int microseconds);
    /**
     * The same for signal handlers: acquires no lock.
     * @param t            a time from 1970 to 9999
     * @param secondsEast  the offset of the local time in seconds
     */
    DateTimeText(TimeFormat format, std::time_t t, unsigned int microseconds, long secondsEast) noexcept;

    std::string_view view() const noexcept
    {
        return {text, length};
    }

private:
    /** Formats what the constructor's fast path does not: local time, other years, long names. */
    void format(std::time_t t, bool local);

    char text[64];
    std::size_t length;
};

}

#endif
