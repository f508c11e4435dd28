#ifndef QV_PMX_TYPES_H
#define QV_PMX_TYPES_H

/**
 * @file
 * Types of the system interface.
 */

#include <stdint.h>

/** @name Fixed-width integers */
/** @{ */
/** An integer of the width in its name, in bits. */
typedef int8_t si_int8_t;
typedef uint16_t si_uint16_t;
typedef int32_t si_int32_t;
typedef uint32_t si_uint32_t;
typedef int64_t si_int64_t;
typedef uint64_t si_uint64_t;
/** @} */

/** A status: 0 for success, otherwise an `errno` value or a number in the common error table. */
typedef si_int32_t qv_err_t;
/** A truth value; 0 is false. */
typedef si_int32_t qv_bool_t;

/** A point in time or an interval; functions that use one document its clock. */
typedef struct si_timespec_t
{
    /** Seconds. */
    si_int32_t seconds;
    /** Nanoseconds, from 0 to 999999999. */
    si_int32_t nanoseconds;
} si_timespec_t;

/** The kernel's ID of a thread, as shown by `ps -L`. */
typedef si_int32_t ThreadID_t;

/** A loaded library. */
typedef struct qv_library* qv_lhandle_t;
/** The modules that were loaded in the process when the list was created. */
typedef struct qv_module_list* qv_module_list_t;

#endif
