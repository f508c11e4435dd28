#ifndef DALNIM_LOG_SRC_RECORDPRIORITY_HPP
#define DALNIM_LOG_SRC_RECORDPRIORITY_HPP

#include <dalnim/log/Common.hpp>
#include <dalnim/log/src/RecordOptions.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

class LineBuffer;

/**
 * The priority of what the calling thread writes to standard error. A service manager that passes the lines
 * of standard error to a system log takes it from a prefix of each line, such as "<4>": see sd-daemon(3).
 *
 * The setting is one of the process, like its standard error. Without it, an object of this class does
 * nothing.
 */
class RecordPriority
{
public:
    /** Sets the priority of the thread to that of a severity, until the end of the scope. */
    explicit RecordPriority(Severity severity) noexcept : isSet(isEnabled()), outer(0)
    {
        if (__builtin_expect(isSet, false)) {
            outer = exchange(digitOf(severity));
        }
    }
    ~RecordPriority()
    {
        if (__builtin_expect(isSet, false)) {
            exchange(outer);
        }
    }
    RecordPriority(const RecordPriority&) = delete;
    RecordPriority& operator=(const RecordPriority&) = delete;

    /** Returns true if lines on standard error have the prefix. */
    static bool isEnabled() noexcept
    {
        return RecordOptions::has(RecordOptions::PRIORITIES);
    }
    /** Returns the previous setting. */
    static bool setEnabled(bool on) noexcept
    {
        return RecordOptions::set(RecordOptions::PRIORITIES, on);
    }
    /** Returns the prefix of an error message; an empty string if the setting is off. */
    static const char* errorPrefix() noexcept
    {
        return isEnabled() ? "<3>" : "";
    }
    /**
     * Appends a text that begins a line, with the prefix in front of each line. Appends it unchanged if the
     * setting is off, or if the thread has no priority.
     */
    static void append(LineBuffer& lines, std::string_view text);

private:
    /** Returns the priority as a digit. */
    static char digitOf(Severity severity) noexcept;
    /** Returns the previous priority of the thread; 0 if it had none. */
    static char exchange(char digit) noexcept;

    const bool isSet;
    char outer;
};

}

#endif
