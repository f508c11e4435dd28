#ifndef DALNIM_IO_FSOPS_HPP
#define DALNIM_IO_FSOPS_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

/**
 * @file
 * What a path is and where it leads. These functions keep no state; their answers are true at the
 * moment of the call only, and they may be called from any thread.
 */

namespace com::kor::dal::nim::io {

/** What pathStat() is asked about, and what it answers. */
enum PathStatFlags : int {
    /** The path exists. */
    PATH_EXISTS = 1,
    /** It is a directory. */
    PATH_IS_DIR = 2,
    /** It can be executed; for a directory, entered. */
    PATH_CAN_EXECUTE = 4,
    /** It is a directory that can be entered. Told only together with the two before it. */
    PATH_CAN_SEARCH = 8,
    /** It can be read. */
    PATH_CAN_READ = 16,
    /** It can be written. */
    PATH_CAN_WRITE = 32
};

/**
 * The absolute path of an existing file or directory, free of symbolic links, "." and "..", with
 * every backslash in it turned into "/".
 *
 * White space and quotes around the path, and separators at its end, are dropped first; "/" alone
 * is therefore no path. A path that contains a zero byte does not exist (2, ENOENT); the message has "\\0"
 * in its place.
 *
 * @throws std::invalid_argument  "Specified path is nil.", when nothing is left of `path`.
 * @throws sys::system_error      the system's number and "Error resolving '`path`': " with its text.
 */
DALNIM_API String fullPath(const char* path);
/** The same. */
DALNIM_API String fullPath(const String& path);

/**
 * What a path is, and what the effective user may do with it.
 *
 * @param path            used unchanged, without trimming; a path that contains a zero byte does not
 *                        exist.
 * @param flags_to_check  the PathStatFlags to look into; 0 stands for all of them.
 * @param no_perm_error   whether a path that lies beyond the caller's reach is a failure.
 *
 * @return the flags that were asked for and hold. A path that exists but has nothing of what was
 *         asked for gives 1, one that does not exist gives 0. A path beyond the caller's reach
 *         gives -1, unless `no_perm_error` is set. PATH_CAN_SEARCH must be asked for together with
 *         PATH_IS_DIR and PATH_CAN_EXECUTE.
 *
 * @throws std::invalid_argument  "Specified path is nil." for a null or empty path,
 *                                "Invalid flags specified." for a bit that is none of the flags.
 * @throws sys::system_error      the system's number and "Error checking access on '`path`': " with
 *                                its text: 13 with `no_perm_error`, and whatever else kept the
 *                                path from being examined.
 */
DALNIM_API int pathStat(const char* path, int flags_to_check = 0, bool no_perm_error = false);
/** The same. */
DALNIM_API int pathStat(const String& path, int flags_to_check = 0, bool no_perm_error = false);

}

#endif
