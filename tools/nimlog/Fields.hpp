#ifndef DALNIM_TOOLS_NIMLOG_FIELDS_HPP
#define DALNIM_TOOLS_NIMLOG_FIELDS_HPP

#include <dalnim/log/Common.hpp>

#include <ctime>
#include <string_view>

namespace nimlog {

/** The date and time of a record, as it stands there and as a number. */
struct DateTime
{
    int year;
    int month;
    int day;
    /** "15:05:20" */
    std::string_view clock;
    /** "UTC" or "+0100" */
    std::string_view zone;
    std::time_t when;
};

/** What a record's prefix tells; all views are into the line. */
struct Fields
{
    /** Bits of log::Mask for the fields that are there. */
    unsigned int present = 0;
    DateTime dateTime = {};
    std::string_view host;
    std::string_view process;
    std::string_view processId;
    std::string_view thread;
    std::string_view module;
    std::string_view severityName;
    int severity = 0;
    std::string_view source;
    std::string_view line;
    /** The bytes of the line that are prefix. */
    std::size_t length = 0;
};

/** Calls a function with each view of the fields that are there. */
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

/** Some lines that belong together; of no fields if no prefix was recognised. */
struct Record
{
    /** All lines, without the last newline. */
    std::string_view whole;
    Fields fields;
    bool hasPrefix;

    /** What stands behind the prefix. */
    std::string_view text() const
    {
        return whole.substr(fields.length);
    }
};

}

#endif
