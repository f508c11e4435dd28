#ifndef QV_PMX_TYPES_H
#define QV_PMX_TYPES_H

/**
 * @file
 * The types of the system interface.
 */

#include <stdint.h>

/** @name Integers of a fixed width */
/** @{ */
/** Of as many bits as its name says. */
typedef int8_t si_int8_t;
typedef uint16_t si_uint16_t;
typedef int32_t si_int32_t;
typedef uint32_t si_uint32_t;
typedef int64_t si_int64_t;
typedef uint64_t si_uint64_t;
/** @} */

/** A status: 0 is success, anything else an `errno` value or a number of the common error table. */
typedef si_int32_t qv_err_t;
/** A truth value: 0 is false. */
typedef si_int32_t qv_bool_t;

/** A time or an interval; who takes one says which clock it is on. */
typedef struct si_timespec_t
{
    /** Seconds. */
    si_int32_t seconds;
    /** Nanoseconds, from 0 to 999999999. */
    si_int32_t nanoseconds;
} si_timespec_t;

/** The kernel's number of a thread, as `ps -L` shows it. */
typedef si_int32_t ThreadID_t;

/** A loaded library. */
typedef struct qv_library* qv_lhandle_t;
/** The modules that were loaded in the process when the list was made. */
typedef struct qv_module_list* qv_module_list_t;

#endif
