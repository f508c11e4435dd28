#ifndef QV_PMX_LIBRARY_H
#define QV_PMX_LIBRARY_H

/**
 * @file
 * Libraries, and the modules of the process.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Loads a library, with lazy binding and a scope of its own, or counts it once more.
 *
 * @param path        as for `dlopen`; the empty text is the image of the process
 * @param error_text  may be null. Receives the dynamic linker's text of a failure, for the caller to
 *                    `free`, else null
 * @param handle      receives the library, or null
 * @return 0, or an error number: what the system said of a file that cannot be read, be it the library
 *         or one that it needs, else ENOEXEC
 */
DALNIM_API qv_err_t qv_si_library_nload(const char* path, char** error_text, qv_lhandle_t* handle);

/** Gives up a library. The code goes with the last one who loaded it. EINVAL when it cannot be. */
DALNIM_API qv_err_t qv_si_library_unload(qv_lhandle_t handle);

/** Lists the modules of the process. They stay loaded until the list is destroyed. */
DALNIM_API qv_err_t qv_si_module_create_list(qv_module_list_t* list);

/** Releases a list; accepts null. */
DALNIM_API void qv_si_module_destroy_list(qv_module_list_t list);

/**
 * Finds a symbol: in the library and what it was linked with, then in the modules of the list.
 *
 * @param handle, list  either may be null
 * @return the address, null when nobody defines the symbol
 */
DALNIM_API void* qv_si_lib_find_symbol(qv_lhandle_t handle, qv_module_list_t list, const char* name);

QV_END_C

#endif
