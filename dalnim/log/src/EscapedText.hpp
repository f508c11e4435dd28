#ifndef DALNIM_LOG_SRC_ESCAPEDTEXT_HPP
#define DALNIM_LOG_SRC_ESCAPEDTEXT_HPP

#include <string_view>

namespace com::kor::dal::nim::log {

class LineBuffer;

/** Returns whether appendEscaped() would change a text. */
bool needsEscape(std::string_view text) noexcept;

/**
 * Appends a text with its control characters (bytes 0 to 31 but tab, and 127) as \a \b \f \n \r \v where C
 * has such a name, otherwise as \xNN with two lower-case digits, and a backslash as \\. So a record stays on
 * one line, no text looks like the beginning of another record, and nothing reaches a terminal as a command.
 */
void appendEscaped(LineBuffer& line, std::string_view text);

}

#endif
