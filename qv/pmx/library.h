#ifndef QV_PMX_LIBRARY_H
#define QV_PMX_LIBRARY_H

/**
 * @file
 * Shared libraries and the modules of the process.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Loads a library with RTLD_LAZY and RTLD_LOCAL, or increments the reference count of a loaded one. Rejects
 * one that contains or needs a second copy of dalnim, before its initialisers run if `path` contains a slash.
 * @param path        as for `dlopen`; the empty string is the process image
 * @param error_text  may be null. Receives the message of the dynamic linker, which the caller must `free`,
 *                    or null on success
 * @param handle      receives the library, or null on failure
 * @return 0; the `errno` value if the file, or a library that it depends on, cannot be read; EINVAL (22) if
 *         `path` or `handle` is null; otherwise ENOEXEC (8)
 */
DALNIM_API qv_err_t qv_si_library_nload(const char* path, char** error_text, qv_lhandle_t* handle);

/**
 * Releases a library, which is unloaded with its last reference.
 *
 * @return 0, or EINVAL (22) if `handle` is null or not a loaded library
 */
DALNIM_API qv_err_t qv_si_library_unload(qv_lhandle_t handle);

/**
 * Creates a list of the modules of the process. The list holds a reference to each of them.
 *
 * @param list  receives the list; the caller must call qv_si_module_destroy_list()
 * @return 0, EINVAL (22) if `list` is null, or ENOMEM (12)
 */
DALNIM_API qv_err_t qv_si_module_create_list(qv_module_list_t* list);

/** Destroys a list and releases its modules. Has no effect on null. */
DALNIM_API void qv_si_module_destroy_list(qv_module_list_t list);

/**
 * Finds a symbol: in the library and its dependencies, then in the modules of the list.
 *
 * @param handle, list  either may be null
 * @return the address, or null if none of them defines the symbol
 */
DALNIM_API void* qv_si_lib_find_symbol(qv_lhandle_t handle, qv_module_list_t list, const char* name);

QV_END_C

#endif
