#ifndef DALNIM_TOOLS_NIMLOG_FIELDS_HPP
#define DALNIM_TOOLS_NIMLOG_FIELDS_HPP

#include <dalnim/log/Common.hpp>

#include <ctime>
#include <string_view>

namespace nimlog {

/** A point in time. */
struct Instant
{
    /** Since 1970. */
    std::time_t seconds = 0;
    int nanoseconds = 0;

    friend bool operator<(const Instant& left, const Instant& right)
    {
        return left.seconds != right.seconds ? left.seconds < right.seconds
                                             : left.nanoseconds < right.nanoseconds;
    }
};

/** The date and time of a record, as text and as a number. */
struct DateTime
{
    int year;
    int month;
    int day;
    /** Time of day, as in "15:05:20" or "15:05:20.123456". */
    std::string_view clock;
    /** Time zone: "UTC", "Z", or as in "+0100" or "+01:00". */
    std::string_view zone;
    /** Without a fraction, the start of the second. */
    Instant when;
};

/** The fields of a record's prefix. All views refer to the line. */
struct Fields
{
    /** The fields that are present, as bits of log::Mask. */
    unsigned int present = 0;
    DateTime dateTime = {};
    std::string_view host;
    std::string_view process;
    std::string_view processId;
    std::string_view thread;
    std::string_view module;
    std::string_view severityName;
    int severity = 0;
    /** Whether the line starts with a priority. Determines the severity if that is not present. */
    bool hasPriority = false;
    std::string_view source;
    std::string_view line;
    /** Length of the prefix in bytes. */
    std::size_t length = 0;

    bool hasSeverity() const
    {
        return hasPriority || (present & com::kor::dal::nim::log::Mask_SEVERITY) != 0;
    }
};

/** Calls a function with the view of each field that is present. */
template <class Function>
void forEachView(Fields& fields, Function function)
{
    namespace log = com::kor::dal::nim::log;
    const auto callIf = [&](unsigned int bit, std::string_view& view) {
        if ((fields.present & bit) != 0) {
            function(view);
        }
    };
    callIf(log::Mask_DATETIME, fields.dateTime.clock);
    callIf(log::Mask_DATETIME, fields.dateTime.zone);
    callIf(log::Mask_HOSTNAME, fields.host);
    callIf(log::Mask_PROCESSNAME, fields.process);
    callIf(log::Mask_PROCESSID, fields.processId);
    callIf(log::Mask_THREADID, fields.thread);
    callIf(log::Mask_MODULENAME, fields.module);
    callIf(log::Mask_SEVERITY, fields.severityName);
    callIf(log::Mask_SOURCEFILE, fields.source);
    callIf(log::Mask_LINENUMBER, fields.line);
}

/** Adjusts the views of fields to a text that was copied or moved. */
inline void rebase(Fields& fields, const char* from, const char* to)
{
    forEachView(fields, [=](std::string_view& view) {
        view = std::string_view(to + (view.data() - from), view.size());
    });
}

/** Lines that belong together. Without fields if no prefix was recognised. */
struct Record
{
    /** All lines, without the last newline. */
    std::string_view whole;
    Fields fields;
    bool hasPrefix;
    /** Path of the log; empty if only one is read. */
    std::string_view log;

    /** Returns the text after the prefix. */
    std::string_view text() const
    {
        return whole.substr(fields.length);
    }
};

}

#endif
