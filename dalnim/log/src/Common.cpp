#include <dalnim/dalbase.hpp>

#include <dalnim/log/Common.hpp>

#include <dalnim/log/LibraryModule.hpp>
#include <dalnim/log/Module.hpp>
#include <dalnim/log/Write.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/ForkHandlers.hpp>
#include <dalnim/log/src/LogText.hpp>
#include <dalnim/log/src/StatementScope.hpp>
#include <dalnim/sys/System.hpp>

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>
#include <utility>

namespace com::kor::dal::nim {

namespace log {

const LogStreamRec STD_LOG_STREAMS[NUM_STD_LOG_STREAMS] = {
    {"STDERR", &std::cerr},
    {"STDOUT", &std::cout},
    {"STDLOG", &std::clog},
};

const char SEPARATOR[] = " ";
const char TERMINATOR[] = " : ";
static_assert(sizeof SEPARATOR == 2, "a prefix puts its one byte between two fields");
static_assert(sizeof TERMINATOR == TERMINATOR_LENGTH + 1, "the end of a prefix has its length");

volatile bool LOG_LOCALTIME = false;

namespace {

struct NamedValue
{
    unsigned int value;
    const char* name;
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
const NamedValue& findRow(const Rows& rows, const char* complaint, Predicate matches)
{
    const auto row = std::find_if(std::begin(rows), std::end(rows), matches);
    if (row == std::end(rows)) {
        throw std::out_of_range(complaint);
    }
    return *row;
}

/**
 * An object in static storage that is never destroyed. Threads may log while the process exits,
 * and static destructors of plug-ins in any order: the default logger and its modules outlive
 * them all. Each record is with the kernel when its statement returns, so nothing is left to flush.
 */
template <class T>
union Immortal
{
    constexpr Immortal() noexcept : none() {}
    ~Immortal() {}

    template <class... Args>
    T& construct(Args&&... args)
    {
        return *::new (&object) T(std::forward<Args>(args)...);
    }

    char none;
    T object;
};

Immortal<Module> default_module;
Immortal<Module> internal_module;

Write& default_write_instance()
{
    static Immortal<Write> storage;
    static Write& DEFAULT_INSTANCE = storage.construct();
    return DEFAULT_INSTANCE;
}

String internal_log_mod_name()
{
    return String(NAMESPACE_NAME) + ".internal";
}

/** The start-up of the log, in the order in which the default logger lists its modules. */
Control& start()
{
    Write& logger = default_write_instance();
    ForkHandlers::install();
    StatementScope::initialize();
    default_module.construct(Module::DEFAULT_NAME, logger);
    internal_module.construct(internal_log_mod_name(), logger);
    return logger;
}

}

// The bindings of these two are static data, valid before any constructor runs; the objects
// themselves are made by start().
Module& Module::DEFAULT_INSTANCE = default_module.object;
Module& INTERNAL_LOG_MODULE = internal_module.object;

Log& GET_NIM_LOG_LOGGER_VAR()
{
    return default_write_instance();
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
    return findRow(OUTPUTBITS, UNKNOWN_OUTPUT_BIT,
                   [outputMaskBit](const NamedValue& row) { return row.value == outputMaskBit; })
        .name;
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

}

// A process whose log cannot be had from its first statement on does not start.
// NOLINTBEGIN(cert-err58-cpp)
com::kor::dal::nim::log::Module& com_kor_dal_nim_log_module =
    com::kor::dal::nim::log::Module::DEFAULT_INSTANCE;
com::kor::dal::nim::log::Control& com_kor_dal_nim_log_control = com::kor::dal::nim::log::start();

com::kor::dal::nim::log::Module& com::kor::dal::nim::com_kor_dal_nim_log_module =
    com::kor::dal::nim::log::Module::getInstance("com.kor.dal.nim",
                                                 com::kor::dal::nim::log::GET_NIM_LOG_LOGGER_VAR());
// NOLINTEND(cert-err58-cpp)
