#ifndef DALNIM_TOOLS_SUPPORT_UTF8_HPP
#define DALNIM_TOOLS_SUPPORT_UTF8_HPP

#include <cstddef>
#include <string_view>

namespace nimtools {

/**
 * Returns how many bytes at the beginning of a text, which must not be empty, are a character that UTF-8
 * encodes with more than one byte. If `isGood` is set to false, they are an ill-formed piece instead.
 */
std::size_t utf8Sequence(std::string_view text, bool& isGood);

/** Whether a text begins with a control character of U+0080 to U+009F, two bytes in UTF-8. */
bool beginsWithC1(std::string_view text);

}

#endif
