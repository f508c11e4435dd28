#ifndef QV_RTLAPI_RX_FMT_HPP
#define QV_RTLAPI_RX_FMT_HPP

/**
 * @file
 * Conversion of numbers to strings.
 */

#include <qv/pmx/api.h>
#include <qv/rtlapi/RX_String.hpp>

/** The default value of a formatting option. */
constexpr unsigned int RX_FMT_DEFAULT = 314159265;

/**
 * Returns the decimal digits of a number, and nothing else. The three options exist for the callers that pass
 * them; their values have no effect.
 */
DALNIM_API RX_String RX_fmt(unsigned int value, unsigned int option = 0, unsigned int width = RX_FMT_DEFAULT,
                            unsigned int precision = RX_FMT_DEFAULT);
/** Returns the decimal digits of a number, as the overload for `unsigned int` does. */
DALNIM_API RX_String RX_fmt(unsigned long value, unsigned int option = 0, unsigned int width = RX_FMT_DEFAULT,
                            unsigned int precision = RX_FMT_DEFAULT);

#endif
