#ifndef DALNIM_SYS_INTERNAL_SRC_TIMEZONE_HPP
#define DALNIM_SYS_INTERNAL_SRC_TIMEZONE_HPP

#include <dalnim/sys/internal/src/ForkSafeMutex.hpp>

#include <cstddef>
#include <ctime>

namespace com::kor::dal::nim::sys::internal {

/** Initialises the time zone when the library is loaded, before any thread uses local time. */
struct OsOpsInit;
extern const OsOpsInit os_ops_init;

/**
 * All calls of this library that acquire the C library's lock for the time zone.
 *
 * The child of a fork inherits that lock in its state: locked forever if another thread was executing
 * localtime_r(). The library therefore makes these calls only while it holds the mutex of this class, which
 * fork() acquires. Calls of the application itself are not covered.
 *
 * Thread safety: any thread may call any operation.
 */
class TimeZone
{
public:
    TimeZone() = delete;

    /** Calls tzset(). */
    static void set() noexcept;
    /** Calls qv_si_gmtime(), which acquires that lock only for years before 1970 and after 9999. */
    static qv_err_t utcTime(std::time_t time, std::tm& result) noexcept;
    /** Calls qv_si_localtime(). */
    static qv_err_t localTime(std::time_t time, std::tm& result) noexcept;
    /** Calls strftime(), which may look up the names of the time zone. */
    static std::size_t format(char* text, std::size_t size, const char* format, const std::tm& time) noexcept;

    /** fork() acquires it after all locks of the log. No other lock is acquired under it. */
    static ForkSafeMutex mutex;
};

}

#endif
