#include <dalnim/dalbase.hpp>

#include <dalnim/log/Common.hpp>

#include <dalnim/log/src/LogText.hpp>
#include <dalnim/sys/System.hpp>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace com::kor::dal::nim::log {

const LogStreamRec STD_LOG_STREAMS[NUM_STD_LOG_STREAMS] = {
    {"STDERR", &std::cerr},
    {"STDOUT", &std::cout},
    {"STDLOG", &std::clog},
};

const char SEPARATOR[] = " ";
const char TERMINATOR[] = " : ";
static_assert(sizeof SEPARATOR == 2, "a prefix puts its one byte between two fields");
static_assert(sizeof TERMINATOR == TERMINATOR_LENGTH + 1, "the end of a prefix has its length");

// Accessed by relaxed atomic operations: the value is all that is passed on.
volatile bool LOG_LOCALTIME = false;

namespace {

struct NamedValue
{
    unsigned int value;
    std::string_view name;
};

constexpr NamedValue SEVERITIES[] = {
    {Severity_NONE, "NONE"},   {Severity_TRACE, "TRACE"},   {Severity_DEBUG, "DEBUG"},
    {Severity_INFO, "INFO"},   {Severity_NOTICE, "NOTICE"}, {Severity_WARNING, "WARNING"},
    {Severity_ERROR, "ERROR"}, {Severity_FATAL, "FATAL"},
};
static_assert(std::size(SEVERITIES) == Severity_COUNT, "one row for each severity");

constexpr NamedValue OUTPUTBITS[] = {
    {Mask_NONE, "NONE"},
    {Mask_DATETIME, "DATETIME"},
    {Mask_TIMEZONE, "TIMEZONE"},
    {Mask_SEVERITY, "SEVERITY"},
    {Mask_HOSTNAME, "HOSTNAME"},
    {Mask_PROCESSNAME, "PROCESSNAME"},
    {Mask_PROCESSID, "PROCESSID"},
    {Mask_THREADID, "THREADID"},
    {Mask_MODULENAME, "MODULENAME"},
    {Mask_SOURCEFILE, "SOURCEFILE"},
    {Mask_LINENUMBER, "LINENUMBER"},
};

constexpr char UNKNOWN_SEVERITY[] = "Unrecognized NIM Log Severity";
constexpr char UNKNOWN_OUTPUT_BIT[] = "Unrecognized NIM Log Output Mask Bit";

template <class Rows, class Predicate>
const NamedValue& findRow(const Rows& rows, const char* message, Predicate matches)
{
    const auto row = std::find_if(std::begin(rows), std::end(rows), matches);
    if (row == std::end(rows)) {
        throw std::out_of_range(message);
    }
    return *row;
}

}

String getSeverityName(Severity severity)
{
    return String(severityText(severity));
}

std::string_view severityText(Severity severity)
{
    const auto index = static_cast<unsigned int>(severity);
    if (index < Severity_COUNT && SEVERITIES[index].value == index) {
        return SEVERITIES[index].name;
    }
    return findRow(SEVERITIES, UNKNOWN_SEVERITY,
                   [index](const NamedValue& row) { return row.value == index; })
        .name;
}

Severity getSeverityId(const String& name)
{
    return static_cast<Severity>(findRow(SEVERITIES, UNKNOWN_SEVERITY, [&name](const NamedValue& row) {
                                     return row.name == name;
                                 }).value);
}

String getOutputName(unsigned int outputMaskBit)
{
    return String(findRow(OUTPUTBITS, UNKNOWN_OUTPUT_BIT, [outputMaskBit](const NamedValue& row) {
                      return row.value == outputMaskBit;
                  }).name);
}

unsigned int getOutputBit(const String& name)
{
    return findRow(OUTPUTBITS, UNKNOWN_OUTPUT_BIT,
                   [&name](const NamedValue& row) { return row.name == name; })
        .value;
}

ProcID_t getProcessId()
{
    return sys::System::procId();
}

String getProcessName()
{
    return sys::System::getProcessPath(sys::System::EXECUTABLE_NAME_ONLY);
}

}
