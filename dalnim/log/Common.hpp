#ifndef DALNIM_LOG_COMMON_HPP
#define DALNIM_LOG_COMMON_HPP

/**
 * @file
 * The vocabulary of the log: severities, the fields of a prefix, the default logger.
 */

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <iosfwd>

namespace com::kor::dal::nim::log {

class Control;
class Log;
class Module;

/** How serious a record is: a higher value is more serious. As a threshold, NONE passes everything. */
enum Severity : std::int32_t {
    Severity_MIN = 0,
    Severity_NONE = 0,
    Severity_TRACE = 1,
    Severity_DEBUG = 2,
    Severity_INFO = 3,
    Severity_NOTICE = 4,
    Severity_WARNING = 5,
    Severity_ERROR = 6,
    Severity_FATAL = 7,
    Severity_MAX = 7,
    Severity_COUNT = 8
};

/** The fields of a record's prefix, combined as bits of an `unsigned int`. */
enum Mask : std::uint32_t {
    Mask_MIN = 0,
    Mask_NONE = 0,
    Mask_DATETIME = 1,
    /** Named, stored and displayed; it selects no field. */
    Mask_TIMEZONE = 2,
    Mask_SEVERITY = 4,
    Mask_HOSTNAME = 8,
    Mask_PROCESSNAME = 16,
    Mask_PROCESSID = 32,
    Mask_THREADID = 64,
    Mask_MODULENAME = 128,
    Mask_SOURCEFILE = 256,
    Mask_LINENUMBER = 512,
    /** One above the highest single bit, not a mask of all bits. */
    Mask_MAX = 513,
    Mask_ALL = 1023
};

/** A standard stream under the name that a configuration gives it. */
struct LogStreamRec
{
    /** As a configuration names it, such as "STDERR". */
    const char* name;
    /** The stream of the standard library; never null, and never owned. */
    std::ostream* addr;
};

/** How many standard streams there are. */
constexpr unsigned int NUM_STD_LOG_STREAMS = 3;
/** "STDERR", "STDOUT", "STDLOG". The first is where records go when nothing else takes them. */
extern DALNIM_API const LogStreamRec STD_LOG_STREAMS[NUM_STD_LOG_STREAMS];

/** Stands between two fields of a prefix: one blank. */
extern DALNIM_API const char SEPARATOR[];
/** Ends a prefix: " : ". */
extern DALNIM_API const char TERMINATOR[];

/** Whether records carry local time; false is UTC. One setting for all loggers of the process. */
extern DALNIM_API volatile bool LOG_LOCALTIME;

/** The name of a severity. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
DALNIM_API String getSeverityName(Severity severity);
/** The severity of that exact name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
DALNIM_API Severity getSeverityId(const String& name);
/** The name of 0 or of a single bit. Throws `std::out_of_range`, "Unrecognized NIM Log Output Mask Bit". */
DALNIM_API String getOutputName(unsigned int outputMaskBit);
/** The bit of that exact name. Throws `std::out_of_range`, "Unrecognized NIM Log Output Mask Bit". */
DALNIM_API unsigned int getOutputBit(const String& name);

/** Decimal text; a negative number shows as its unsigned 32-bit value. */
DALNIM_API String toString(int number);

/**
 * The date and time of a record, such as "Sat Nov 14 15:05:20 UTC 2026". The time 0 stands for now.
 * Throws sys::system_error 38 when the time cannot be broken down.
 */
DALNIM_API String getDateTime(time_t t);

/** The number of this process. */
DALNIM_API ProcID_t getProcessId();
/** The name of the executable, without a directory. */
DALNIM_API String getProcessName();

/** The default logger, made at the first call whatever the order of static initialisation. */
DALNIM_API Log& GET_NIM_LOG_LOGGER_VAR();

/** The logger's own module, "com.kor.dal.nim.log.internal": change reports stand under it. */
extern DALNIM_API Module& INTERNAL_LOG_MODULE;

}

/** The module of log statements that see no other: Module::DEFAULT_INSTANCE, "global". */
extern DALNIM_API com::kor::dal::nim::log::Module& com_kor_dal_nim_log_module;
/** The default logger as its control interface. */
extern DALNIM_API com::kor::dal::nim::log::Control& com_kor_dal_nim_log_control;

#endif
