#ifndef DALNIM_TYPE_STREAMOPS_HPP
#define DALNIM_TYPE_STREAMOPS_HPP

#include <dalnim/type/nsdefs.hpp>

/**
 * @file
 * Reserved for operations on streams. The library has none: strings are written by `<<`.
 */

#endif
