#include <dalnim/dalbase.hpp>

#include <dalnim/log/src/RecordPriority.hpp>

#include <dalnim/log/src/LineBuffer.hpp>

#include <algorithm>
#include <utility>

namespace com::kor::dal::nim::log {

namespace {

/** A digit, or 0 if the thread writes nothing that has a priority. */
thread_local char current_digit = 0;

}

char RecordPriority::digitOf(Severity severity) noexcept
{
    switch (severity) {
    case Severity_FATAL:
        return '2';
    case Severity_ERROR:
        return '3';
    case Severity_WARNING:
        return '4';
    case Severity_NOTICE:
        return '5';
    case Severity_INFO:
        return '6';
    default:
        return '7';
    }
}

char RecordPriority::exchange(char digit) noexcept
{
    return std::exchange(current_digit, digit);
}

void RecordPriority::append(LineBuffer& lines, std::string_view text)
{
    if (!isEnabled() || current_digit == 0) {
        lines.append(text);
        return;
    }
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
        lines.append('<').append(current_digit).append('>').append(text.substr(0, length));
        text.remove_prefix(length);
    }
}

}
