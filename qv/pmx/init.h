#ifndef QV_PMX_INIT_H
#define QV_PMX_INIT_H

/**
 * @file
 * The start of the system interface, when a source file of its users is loaded.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/panic.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Prepares the system interface for a process of several threads. May be called any number of times
 * from any thread: the first call does the work, all give its status.
 */
DALNIM_API qv_err_t qv_si_init_only_multithreaded(void) QV_NOEXCEPT;

QV_END_C

#ifdef __cplusplus

namespace qv {

/**
 * A load-time object that enters one family of messages in the common error table, unless an object
 * of another source file did. Unsynchronised: the loader runs initialisers on one thread.
 */
class ErrorTableInitializer
{
public:
    /** Calls `init`, unless `done` says that somebody did. */
    ErrorTableInitializer(int& done, void (*init)()) noexcept
    {
        if (done == 0) {
            done = 1;
            init();
        }
    }
};

/** A load-time object that starts the system interface; a failure ends the process. */
class SystemInterfaceInitializer
{
public:
    /** @param path, line  what the last words of the process name */
    SystemInterfaceInitializer(const char* path, int line) noexcept
    {
        if (qv_si_init_only_multithreaded() != 0) {
            qv_si_panic_internal(path, line);
        }
    }
};

}

#endif

#endif
