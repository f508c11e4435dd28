#ifndef DALNIM_LOG_SRC_SETTINGSTEXT_HPP
#define DALNIM_LOG_SRC_SETTINGSTEXT_HPP

#include <dalnim/String.hpp>
#include <dalnim/log/Control.hpp>

#include <cstddef>

namespace com::kor::dal::nim::log {

// The form of values in reports of changes.

/** The source file in the prefix of reports: the same for all sources of the logger. */
constexpr char REPORT_SOURCE[] = "log/src/Write";

inline String quoted(const String& text)
{
    return '"' + text + '"';
}

inline String quoted(std::size_t number)
{
    return quoted(std::to_string(number));
}

inline const char* truth(bool value)
{
    return value ? "true" : "false";
}

/** Returns the mode as "0640" or "umask", including the quotes. */
inline String fileModeText(unsigned int mode)
{
    if (mode == Control::MODE_OF_UMASK) {
        return quoted(String("umask"));
    }
    String digits = "0000";
    for (std::size_t i = digits.size(); i-- > 0; mode >>= 3) {
        digits[i] = static_cast<char>('0' + (mode & 7));
    }
    return quoted(digits);
}

}

#endif
