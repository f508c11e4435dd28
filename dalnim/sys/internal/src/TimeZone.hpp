#ifndef DALNIM_SYS_INTERNAL_SRC_TIMEZONE_HPP
#define DALNIM_SYS_INTERNAL_SRC_TIMEZONE_HPP

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

#include <cstddef>
#include <ctime>

namespace com::kor::dal::nim::sys::internal {

/**
 * All calls of this library that take the C library's time zone lock.
 *
 * A forked child would inherit that lock as it is: locked forever if another thread was inside
 * localtime_r(). So the library's own threads are inside it only while they hold the mutex of this class,
 * which fork() acquires. An application's own calls are beyond that.
 */
class TimeZone
{
public:
    TimeZone() = delete;

    /** tzset(). */
    static void set() noexcept;
    /** qv_si_gmtime(), which takes that lock for years before 1970 and after 9999 only. */
    static qv_err_t utcTime(std::time_t time, std::tm& result) noexcept;
    /** qv_si_localtime(). */
    static qv_err_t localTime(std::time_t time, std::tm& result) noexcept;
    /** strftime(), which may look up the names of the time zone. */
    static std::size_t format(char* text, std::size_t size, const char* format, const std::tm& time) noexcept;

    /** Held across fork, after all locks of the log. No other lock is acquired under it. */
    static ForkSafeMutex mutex;
};

}

#endif
