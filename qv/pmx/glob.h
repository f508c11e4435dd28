#ifndef QV_PMX_GLOB_H
#define QV_PMX_GLOB_H

/**
 * @file
 * Scanning a directory for the names that match a wildcard pattern.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

struct qv_glob_scan;

/** A directory scan: the names that matched, and the place in them. One thread at a time uses it. */
typedef struct qv_glob_t
{
    /** Null when it was released. */
    struct qv_glob_scan* scan;
} qv_glob_t;

/**
 * Reads `directory` at once (an empty text is the working directory) and keeps the names that match
 * `pattern`, sorted byte by byte. `directory` is taken as it stands; the wildcards of `pattern` are
 * those of RX_Wildcard in its style WILD. "." and ".." are never among the names; all others are,
 * whatever kind of file they name.
 *
 * The result is 0 or an error number: 22 (EINVAL) for a bad pattern, otherwise that of reading the
 * directory. Whatever the result, `glob` may be walked over the names found so far, and is to be
 * destructed.
 */
DALNIM_API qv_err_t qv_si_fileio_glob_construct(qv_glob_t* glob, const char* directory,
                                                const char* pattern) QV_NOEXCEPT;

/** The next name, valid until `glob` is destructed; null at the end. */
DALNIM_API const char* qv_si_fileio_glob_next(qv_glob_t* glob) QV_NOEXCEPT;

/** Releases the scan; accepts one that was released already. */
DALNIM_API void qv_si_fileio_glob_destruct(qv_glob_t* glob) QV_NOEXCEPT;

QV_END_C

#endif
