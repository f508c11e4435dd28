#include <dalnim/dalbase.hpp>

#include <dalnim/log/TimeFormat.hpp>

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace com::kor::dal::nim::log {

namespace {

constexpr const char* NAMES[] = {"LOCAL", "UTC", "UTC_MS", "UTC_US", "OFFSET", "OFFSET_MS", "OFFSET_US"};
static_assert(std::size(NAMES) == TimeFormat_OFFSET_US + 1, "one name for each form");

[[noreturn]] void rejectFormat()
{
    throw std::out_of_range("Unrecognized NIM Log Time Format");
}

}

String getTimeFormatName(TimeFormat format)
{
    if (format >= std::size(NAMES)) {
        rejectFormat();
    }
    return NAMES[format];
}

TimeFormat getTimeFormatId(const String& name)
{
    const auto* const found = std::find(std::begin(NAMES), std::end(NAMES), name);
    if (found == std::end(NAMES)) {
        rejectFormat();
    }
    return static_cast<TimeFormat>(found - std::begin(NAMES));
}

}
