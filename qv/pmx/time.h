#ifndef QV_PMX_TIME_H
#define QV_PMX_TIME_H

/**
 * @file
 * The clock, calendar time and sleep.
 */

#include <time.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Reads the wall clock: the time since 1970-01-01 00:00 UTC.
 *
 * @param now  receives the time, or the greatest time that fits
 * @return 0, or EOVERFLOW (75) from January 2038 on, when the seconds exceed 32 bits; sys::System has 64-bit
 *         clocks
 */
DALNIM_API qv_err_t qv_si_gettime(si_timespec_t* now) QV_NOEXCEPT;

/** Converts to calendar time in UTC. Fails with EOVERFLOW (75) if the year does not fit. */
DALNIM_API qv_err_t qv_si_gmtime(time_t time, struct tm* result) QV_NOEXCEPT;

/** Converts to calendar time in the zone set by `tzset`. Fails as qv_si_gmtime() does. */
DALNIM_API qv_err_t qv_si_localtime(time_t time, struct tm* result) QV_NOEXCEPT;

/**
 * Sleeps for an interval, unaffected by changes of the wall clock. A cancellation point.
 *
 * @param remaining  may be null; receives the rest of the interval if a signal interrupts the sleep
 * @return 0, EINTR (4) if a signal interrupts the sleep, or EINVAL (22) if the interval is negative or not
 *         normalised
 */
DALNIM_API qv_err_t qv_si_nanosleep(const si_timespec_t* request, si_timespec_t* remaining);

QV_END_C

#endif
