#ifndef QV_PMX_PATH_H
#define QV_PMX_PATH_H

/**
 * @file
 * What a path names, and where it leads.
 */

#include <stddef.h>

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

/**
 * Tells what a path names: 0 a directory, ENOTDIR something else, ENOENT nothing, also when a part on
 * the way is no directory, EACCES when access is refused on the way, or another error number.
 * Symbolic links are followed.
 */
DALNIM_API qv_err_t qv_si_isdir(const char* path) QV_NOEXCEPT;

/**
 * Resolves a path that exists to its absolute form, free of links, "." and "..".
 *
 * 0: the whole result and its terminator are in the buffer. ERANGE: they did not fit, and the buffer
 * holds as much of the result as fits before the terminator. Any other error: the buffer holds the
 * empty text. A buffer of 4096 bytes (PATH_MAX) holds every result.
 */
DALNIM_API qv_err_t qv_si_getrealpath(const char* path, size_t size, char* buffer) QV_NOEXCEPT;

QV_END_C

#endif
