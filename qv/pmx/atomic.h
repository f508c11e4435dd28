#ifndef QV_PMX_ATOMIC_H
#define QV_PMX_ATOMIC_H

/**
 * @file
 * Atomic counters.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

/**
 * A counter shared between threads. Initialised like a plain integer, then modified only by the two functions
 * below. Wraps around on overflow.
 */
typedef si_int32_t si_atomic_t;

/** Adds 1 and returns the new value. Relaxed: the caller already holds one of the counted references. */
static inline si_int32_t qv_si_atomic_increment(si_atomic_t* counter) QV_NOEXCEPT
{
    return __atomic_add_fetch(counter, 1, __ATOMIC_RELAXED);
}

/**
 * Subtracts 1 and returns the new value. Acquire and release: the thread that reaches 0 sees everything that
 * other threads did before their decrement.
 */
static inline si_int32_t qv_si_atomic_decrement(si_atomic_t* counter) QV_NOEXCEPT
{
    return __atomic_sub_fetch(counter, 1, __ATOMIC_ACQ_REL);
}

#endif
