#ifndef DALNIM_TYPE_STREAMOPS_HPP
#define DALNIM_TYPE_STREAMOPS_HPP

#include <dalnim/type/nsdefs.hpp>

/**
 * @file
 * The place of operations on streams. There are none: strings and streams meet by `<<`.
 */

#endif
