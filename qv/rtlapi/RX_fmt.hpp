#ifndef QV_RTLAPI_RX_FMT_HPP
#define QV_RTLAPI_RX_FMT_HPP

/**
 * @file
 * Numbers as text.
 */

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_String.hpp>

/** The value of a formatting option that stands for its default. */
constexpr unsigned int RX_FMT_DEFAULT = 314159265;

/**
 * A number as text: its decimal digits and nothing else. The three options are there for the sake of
 * the callers that name them; no value of them alters the result.
 */
DALNIM_API RX_String RX_fmt(unsigned int value, unsigned int option = 0, unsigned int width = RX_FMT_DEFAULT,
                            unsigned int precision = RX_FMT_DEFAULT);
/** The same. */
DALNIM_API RX_String RX_fmt(unsigned long value, unsigned int option = 0, unsigned int width = RX_FMT_DEFAULT,
                            unsigned int precision = RX_FMT_DEFAULT);

#endif
