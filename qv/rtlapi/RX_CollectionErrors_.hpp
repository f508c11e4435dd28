#ifndef QV_RTLAPI_RX_COLLECTIONERRORS_PRIVATE_HPP
#define QV_RTLAPI_RX_COLLECTIONERRORS_PRIVATE_HPP

/**
 * @file
 * The exceptions of the collections.
 */

#include <cstddef>

#include <qv/pmx/api.h>

// Out of line, to keep the collection templates small.

/** Throws RX_ExError 51458 (index out of range) with the index and the size as arguments. */
[[noreturn]] DALNIM_API void RX_raiseIndexRange_(std::size_t index, std::size_t size);

/** Throws RX_ExError 51488: no such element. */
[[noreturn]] DALNIM_API void RX_raiseNoElement_();

/** Throws RX_ExError 51512: an iterator is used past its end. */
[[noreturn]] DALNIM_API void RX_raiseIteratorEnd_();

/** Throws RX_ExError 51532: a set was modified during an iteration. */
[[noreturn]] DALNIM_API void RX_raiseSetChanged_();

#endif
