#ifndef DALNIM_IO_FSOPS_HPP
#define DALNIM_IO_FSOPS_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

/**
 * @file
 * Queries about paths. Another process can change the file system at any time, so results may already be out
 * of date when a function returns.
 *
 * Thread safety: any thread may call any function.
 */

namespace com::kor::dal::nim::io {

/** The properties that pathStat() checks and returns. */
enum PathStatFlags : int {
    /** The path exists. */
    PATH_EXISTS = 1,
    /** It is a directory. */
    PATH_IS_DIR = 2,
    /** The effective user may execute it or, if it is a directory, search it. */
    PATH_CAN_EXECUTE = 4,
    /** It is a directory that the effective user may search. Requires the two flags above. */
    PATH_CAN_SEARCH = 8,
    /** The effective user may read it. */
    PATH_CAN_READ = 16,
    /** The effective user may write it. */
    PATH_CAN_WRITE = 32
};

/**
 * Returns the absolute path of an existing file or directory, without symbolic links, "." and "..", and with
 * every backslash replaced by "/".
 *
 * White space and quotes around the path, and separators at its end, are removed first; "/" alone is
 * therefore not a path. A path that contains a zero byte does not exist (2, ENOENT); the message contains
 * "\\0" in its place.
 *
 * @throws std::invalid_argument  "Specified path is nil.", if nothing remains of `path`
 * @throws sys::system_error      the system's error number, "Error resolving '`path`': " and its message
 */
DALNIM_API String fullPath(const char* path);
/** The same. */
DALNIM_API String fullPath(const String& path);

/**
 * Returns the type of a path, and the rights that the effective user has to it.
 *
 * @param path            used unchanged, without trimming. A path that contains a zero byte does not exist
 * @param flags_to_check  the PathStatFlags to check; 0 means all. PATH_CAN_SEARCH also requires PATH_IS_DIR
 * and PATH_CAN_EXECUTE
 * @param no_perm_error   whether to throw if the caller has no access to a directory on the path
 *
 * @return the checked flags that are true; 1 if the path exists but none of them is true; 0 if it does not
 * exist; -1 if the caller has no access to a directory on the path and `no_perm_error` is false
 *
 * @throws std::invalid_argument  "Specified path is nil." for a null or empty path, "Invalid flags
 * specified." for unknown flags
 * @throws sys::system_error      the system's error number, "Error checking access on '`path`': " and its
 * message: 13 (EACCES) with `no_perm_error`, or another failure to examine the path
 */
DALNIM_API int pathStat(const char* path, int flags_to_check = 0, bool no_perm_error = false);
/** The same. */
DALNIM_API int pathStat(const String& path, int flags_to_check = 0, bool no_perm_error = false);

}

#endif
