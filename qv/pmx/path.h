#ifndef QV_PMX_PATH_H
#define QV_PMX_PATH_H

/**
 * @file
 * File types and canonical paths.
 */

#include <stddef.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Checks whether a path names a directory. Follows symbolic links.
 *
 * @return 0 for a directory; ENOTDIR (20) for any other file; ENOENT (2) if there is no such file, also if a
 *         component of its directory is not a directory; EACCES (13) if a directory cannot be searched;
 *         EINVAL (22) if `path` is null; or another `errno` value
 */
DALNIM_API qv_err_t qv_si_isdir(const char* path) QV_NOEXCEPT;

/**
 * Resolves an existing path to its absolute form, without links, "." and "..".
 *
 * @param size    size of `buffer`, in bytes; 4096 (PATH_MAX) is always sufficient
 * @param buffer  receives the result with its terminator. If the result does not fit, it is truncated; after
 *                any other error it is empty
 * @return 0, ERANGE (34) if the result does not fit, EINVAL (22) for a null argument or a size of 0, or
 *         another `errno` value
 */
DALNIM_API qv_err_t qv_si_getrealpath(const char* path, size_t size, char* buffer) QV_NOEXCEPT;

QV_END_C

#endif
