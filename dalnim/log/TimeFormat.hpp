#ifndef DALNIM_LOG_TIMEFORMAT_HPP
#define DALNIM_LOG_TIMEFORMAT_HPP

#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <cstdint>

namespace com::kor::dal::nim::log {

/**
 * The form of the date and time in a record's prefix. Each form is the whole field that Mask_DATETIME
 * selects, with its zone; Mask_TIMEZONE selects nothing in any form.
 */
enum TimeFormat : std::uint32_t {
    /** As getDateTime() returns it: "Sat Nov 14 15:05:20 UTC 2026", or local time if that is selected. */
    TimeFormat_LOCAL = 0,
    // ISO 8601, whatever LOG_LOCALTIME is.
    /** "2026-11-14T15:05:20Z" */
    TimeFormat_UTC = 1,
    /** "2026-11-14T15:05:20.123Z" */
    TimeFormat_UTC_MS = 2,
    /** "2026-11-14T15:05:20.123456Z" */
    TimeFormat_UTC_US = 3,
    /** "2026-11-14T16:05:20+01:00": the time of the local zone, with its offset in hours and minutes. */
    TimeFormat_OFFSET = 4,
    /** "2026-11-14T16:05:20.123+01:00" */
    TimeFormat_OFFSET_MS = 5,
    /** "2026-11-14T16:05:20.123456+01:00" */
    TimeFormat_OFFSET_US = 6
};

/**
 * Returns the name in configurations, such as "UTC_MS". Throws `std::out_of_range`, "Unrecognized NIM Log
 * Time Format".
 */
DALNIM_API String getTimeFormatName(TimeFormat format);
/**
 * Returns the form with exactly this name. Throws `std::out_of_range`, "Unrecognized NIM Log Time Format".
 */
DALNIM_API TimeFormat getTimeFormatId(const String& name);

}

#endif
