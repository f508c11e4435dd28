#ifndef QV_PMX_THREAD_H
#define QV_PMX_THREAD_H

/**
 * @file
 * Thread IDs and thread-specific values.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/** The key of a thread-specific value. */
typedef unsigned int si_thread_key_t;

/** Returns the ID of the calling thread, which is cached; in the child of a `fork`, that of the child. */
DALNIM_API ThreadID_t qv_si_thread_self(void) QV_NOEXCEPT;

/**
 * Creates a key, which is never destroyed.
 *
 * @param destructor  called when a thread ends, with the thread's value unless that is null; may be null
 * @return 0, or EAGAIN (11) if there are too many keys
 */
DALNIM_API qv_err_t qv_si_thread_keycreate(si_thread_key_t* key, void (*destructor)(void*)) QV_NOEXCEPT;

/** Returns the value of the calling thread, or null if none has been set. */
DALNIM_API void* qv_si_thread_getspecific(si_thread_key_t key) QV_NOEXCEPT;

/** Sets the value of the calling thread. Fails with EINVAL (22) if the key has not been created. */
DALNIM_API qv_err_t qv_si_thread_setspecific(si_thread_key_t key, const void* value) QV_NOEXCEPT;

QV_END_C

#endif
