#ifndef QV_PMX_API_H
#define QV_PMX_API_H

/** Marks what the shared library exports; everything else in it is hidden. */
#define DALNIM_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define QV_BEGIN_C extern "C" {
#define QV_END_C }
/** On functions that let nothing out, not even the unwinding of a cancelled thread. */
#define QV_NOEXCEPT noexcept
#else
#define QV_BEGIN_C
#define QV_END_C
#define QV_NOEXCEPT
#endif

#endif
