#ifndef QV_PMX_API_H
#define QV_PMX_API_H

/**
 * @file
 * Macros for declarations: exported symbols, C linkage, functions that do not throw.
 */

/** Exports a symbol from the shared library. All other symbols are hidden. */
#define DALNIM_API __attribute__((visibility("default")))

#ifdef __cplusplus
/** Precedes declarations for C and C++. */
#define QV_BEGIN_C extern "C" {
/** Follows declarations for C and C++. */
#define QV_END_C }
/** Marks functions that no exception leaves, not even the forced unwinding of a cancelled thread. */
#define QV_NOEXCEPT noexcept
#else
#define QV_BEGIN_C
#define QV_END_C
#define QV_NOEXCEPT
#endif

#endif
