#ifndef QV_RTLAPI_RX_COLLECTIONERRORS_PRIVATE_HPP
#define QV_RTLAPI_RX_COLLECTIONERRORS_PRIVATE_HPP

/**
 * @file
 * What the collections raise.
 */

#include <cstddef>

#include <qv/pmx/api.h>

// The failures of the collection templates, raised out of line to keep the templates small.

/** Raises RX_ExError with code 51458; the arguments are the index and the size. */
[[noreturn]] DALNIM_API void RX_raiseIndexRange_(std::size_t index, std::size_t size);

/** Raises RX_ExError with code 51488: there is no element to take. */
[[noreturn]] DALNIM_API void RX_raiseNoElement_();

/** Raises RX_ExError with code 51512: an iterator is used beyond its end. */
[[noreturn]] DALNIM_API void RX_raiseIteratorEnd_();

/** Raises RX_ExError with code 51532: a set was changed under its iterator. */
[[noreturn]] DALNIM_API void RX_raiseSetChanged_();

#endif
