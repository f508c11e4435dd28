#ifndef QV_PMX_GLOB_H
#define QV_PMX_GLOB_H

/**
 * @file
 * Directory scans: the names that match a wildcard pattern.
 */

#include <qv/pmx/api.h>
#include <qv/pmx/types.h>

QV_BEGIN_C

struct qv_glob_scan;

/** A directory scan: the matching names and a read position. Not thread-safe. */
typedef struct qv_glob_t
{
    /** Owned; null after qv_si_fileio_glob_destruct(). */
    struct qv_glob_scan* scan;
} qv_glob_t;

/**
 * Reads a whole directory and stores the names that match a pattern, sorted bytewise. Names of all file types
 * are included, except "." and "..".
 *
 * @param glob       initialised even if the function fails: it then yields the names read so far. The caller
 *                   must always call qv_si_fileio_glob_destruct()
 * @param directory  used verbatim, without wildcards; the empty string is the working directory
 * @param pattern    has the wildcards of RX_Wildcard::WILD
 * @return 0, EINVAL (22) if `pattern` is malformed, ENOMEM (12), or the error from reading the directory
 */
DALNIM_API qv_err_t qv_si_fileio_glob_construct(qv_glob_t* glob, const char* directory,
                                                const char* pattern) QV_NOEXCEPT;

/** Returns the next name, or null at the end. The name remains valid until `glob` is destructed. */
DALNIM_API const char* qv_si_fileio_glob_next(qv_glob_t* glob) QV_NOEXCEPT;

/** Frees the scan. Has no effect if it has been freed already. */
DALNIM_API void qv_si_fileio_glob_destruct(qv_glob_t* glob) QV_NOEXCEPT;

QV_END_C

#endif
