#ifndef QV_PMX_API_H
#define QV_PMX_API_H

/** Marks what the shared library exports; everything else in it is hidden. */
#define DALNIM_API __attribute__((visibility("default")))

#endif
