#ifndef DALNIM_TOOLS_SUPPORT_TERMINALTEXT_HPP
#define DALNIM_TOOLS_SUPPORT_TERMINALTEXT_HPP

#include <string>
#include <string_view>

namespace nimtools {

/**
 * Appends a string in a form that is safe for terminals: control characters as "^X", those above 127 as
 * "M-^X".
 * @param plain control characters that are appended unchanged
 */
void appendVisible(std::string& to, std::string_view text, std::string_view plain);

}

#endif
