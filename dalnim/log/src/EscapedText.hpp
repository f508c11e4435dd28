#ifndef DALNIM_LOG_SRC_ESCAPEDTEXT_HPP
#define DALNIM_LOG_SRC_ESCAPEDTEXT_HPP

#include <string_view>

namespace com::kor::dal::nim::log {

class LineBuffer;

/** Returns true if appendEscaped() would change the text. */
bool needsEscape(std::string_view text) noexcept;

/**
 * Appends a text with its control characters (bytes 0 to 31 except tab, and 127) written as \a \b \f \n \r \v
 * if C has such a name, otherwise as \xNN with two lower-case digits, and a backslash as \\. A record
 * therefore stays on one line, no text looks like the beginning of another record, and no terminal receives
 * control sequences.
 */
void appendEscaped(LineBuffer& line, std::string_view text);

}

#endif
