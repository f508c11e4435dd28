#ifndef QV_PMX_THREAD_H
#define QV_PMX_THREAD_H

/**
 * @file
 * Threads, and the values that each of them has for itself.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/** Names a value that every thread has for itself. */
typedef unsigned int si_thread_key_t;

/** The number of the calling thread, looked up once a thread; right in the child of a `fork` too. */
DALNIM_API ThreadID_t qv_si_thread_self(void) QV_NOEXCEPT;

/**
 * Makes a key, which lives as long as the process.
 *
 * @param destructor  called at the end of a thread with the thread's value, unless that is null;
 *                    may be null itself
 */
DALNIM_API qv_err_t qv_si_thread_keycreate(si_thread_key_t* key, void (*destructor)(void*)) QV_NOEXCEPT;

/** The calling thread's value, null as long as none was set. */
DALNIM_API void* qv_si_thread_getspecific(si_thread_key_t key) QV_NOEXCEPT;

/** Sets the calling thread's value. EINVAL for a key that was never made. */
DALNIM_API qv_err_t qv_si_thread_setspecific(si_thread_key_t key, const void* value) QV_NOEXCEPT;

QV_END_C

#endif
