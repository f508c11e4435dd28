#ifndef QV_PMX_API_H
#define QV_PMX_API_H

/**
 * @file
 * How the interface is declared: what is exported, C linkage, functions that let nothing out.
 */

/** Marks what the shared library exports; everything else in it is hidden. */
#define DALNIM_API __attribute__((visibility("default")))

#ifdef __cplusplus
/** Stands in front of what is declared for C and C++. */
#define QV_BEGIN_C extern "C" {
/** Stands behind what is declared for C and C++. */
#define QV_END_C }
/** On functions that let nothing out, not even the unwinding of a cancelled thread. */
#define QV_NOEXCEPT noexcept
#else
#define QV_BEGIN_C
#define QV_END_C
#define QV_NOEXCEPT
#endif

#endif
