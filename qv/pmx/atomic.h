#ifndef QV_PMX_ATOMIC_H
#define QV_PMX_ATOMIC_H

/**
 * @file
 * Counters shared between threads.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

/**
 * A counter shared between threads. It starts as a plain integer and is changed only by the two
 * functions below; it wraps round at its ends.
 */
typedef si_int32_t si_atomic_t;

/** Adds 1. The result is the new value. Orders nothing: to count up one must hold a count already. */
static inline si_int32_t qv_si_atomic_increment(si_atomic_t* counter) QV_NOEXCEPT
{
    return __atomic_add_fetch(counter, 1, __ATOMIC_RELAXED);
}

/**
 * Subtracts 1. The result is the new value. Whoever counts down to 0 sees everything that the others
 * did before they counted down.
 */
static inline si_int32_t qv_si_atomic_decrement(si_atomic_t* counter) QV_NOEXCEPT
{
    return __atomic_sub_fetch(counter, 1, __ATOMIC_ACQ_REL);
}

#endif
