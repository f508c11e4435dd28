#ifndef DALNIM_TOOLS_SUPPORT_UTF8_HPP
#define DALNIM_TOOLS_SUPPORT_UTF8_HPP

#include <cstddef>
#include <string_view>

namespace nimtools {

/**
 * Returns the length of the UTF-8 sequence at the start of a string.
 * @param text         starts with a byte above 127
 * @param isWellFormed receives false if the sequence is ill-formed; the result is then the number of bytes to
 *                     replace
 */
std::size_t utf8Sequence(std::string_view text, bool& isWellFormed);

/** Returns true if a string starts with a control character from U+0080 to U+009F (two bytes in UTF-8). */
bool beginsWithC1(std::string_view text);

}

#endif
