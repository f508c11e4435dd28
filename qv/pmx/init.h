#ifndef QV_PMX_INIT_H
#define QV_PMX_INIT_H

/**
 * @file
 * Initialisation of the system interface when the library is loaded.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/panic.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Initialises the system interface for multithreaded use. May be called any number of times, by any thread:
 * the first call does the work, and all calls return its status.
 */
DALNIM_API qv_err_t qv_si_init_only_multithreaded(void) QV_NOEXCEPT;

QV_END_C

#ifdef __cplusplus

namespace qv {

/**
 * A static object that registers one family of the common error table, unless an object in another source
 * file has done so. Not synchronised: the loader runs static initialisers on one thread.
 */
class ErrorTableInitializer
{
public:
    /** Sets `done` and calls `init`, unless `done` is already set. */
    ErrorTableInitializer(int& done, void (*init)()) noexcept
    {
        if (done == 0) {
            done = 1;
            init();
        }
    }
};

/** A static object that initialises the system interface. A failure ends the process. */
class SystemInterfaceInitializer
{
public:
    /** @param path, line  source position in the message if the process is ended */
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
