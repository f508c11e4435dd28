#ifndef QV_PMX_TIME_H
#define QV_PMX_TIME_H

/**
 * @file
 * Clocks, the calendar, and sleep.
 */

#include <time.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * The wall clock, since 1970 in UTC. From January 2038 on, when its seconds exceed 32 bits, EOVERFLOW with
 * the greatest time that fits; sys::System has clocks of 64 bits.
 */
DALNIM_API qv_err_t qv_si_gettime(si_timespec_t* now) QV_NOEXCEPT;

/** The calendar time in UTC. EOVERFLOW when the year does not fit. */
DALNIM_API qv_err_t qv_si_gmtime(time_t time, struct tm* result) QV_NOEXCEPT;

/** The calendar time in the zone that `tzset` found. EOVERFLOW when the year does not fit. */
DALNIM_API qv_err_t qv_si_localtime(time_t time, struct tm* result) QV_NOEXCEPT;

/**
 * Sleeps for an interval; a change of the wall clock does not alter it. EINTR when a signal ends the
 * sleep: `remaining`, unless null, then tells what is left. EINVAL for an interval that is negative
 * or not normalised. A cancellation point.
 */
DALNIM_API qv_err_t qv_si_nanosleep(const si_timespec_t* request, si_timespec_t* remaining);

QV_END_C

#endif
