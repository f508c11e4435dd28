#ifndef DALNIM_LOG_COMMON_HPP
#define DALNIM_LOG_COMMON_HPP

/**
 * @file
 * The vocabulary of the log: severities, the fields of a record's prefix, the default logger.
 */

#include <dalnim/Primitives.hpp>
#include <dalnim/String.hpp>
#include <qv/pmx/api.h>

#include <iosfwd>

namespace com::kor::dal::nim::log {

class Control;
class Log;
class Module;

/** Severity of a record; a higher value is more serious. As a threshold, NONE lets all records pass. */
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
    /** Has a name, is stored and displayed, and selects no field. */
    Mask_TIMEZONE = 2,
    Mask_SEVERITY = 4,
    Mask_HOSTNAME = 8,
    Mask_PROCESSNAME = 16,
    Mask_PROCESSID = 32,
    Mask_THREADID = 64,
    Mask_MODULENAME = 128,
    Mask_SOURCEFILE = 256,
    Mask_LINENUMBER = 512,
    /** One more than the highest single bit; not a mask of all bits. */
    Mask_MAX = 513,
    Mask_ALL = 1023
};

/** A standard stream and its name in configurations. */
struct LogStreamRec
{
    /** Name in configurations, such as "STDERR". */
    const char* name;
    /** The stream of the C++ library; not owned, never null. */
    std::ostream* addr;
};

/** Number of standard streams. */
constexpr unsigned int NUM_STD_LOG_STREAMS = 3;
/** "STDERR", "STDOUT", "STDLOG". Records that no other output accepts are written to the first. */
extern DALNIM_API const LogStreamRec STD_LOG_STREAMS[NUM_STD_LOG_STREAMS];

/** Separates two fields of a prefix: one space. */
extern DALNIM_API const char SEPARATOR[];
/** Ends a prefix: " : ". */
extern DALNIM_API const char TERMINATOR[];

/** Whether records carry local time; false for UTC. Applies to all loggers of the process. */
extern DALNIM_API volatile bool LOG_LOCALTIME;

/** Returns the name of a severity. Throws `std::out_of_range`, "Unrecognized NIM Log Severity". */
DALNIM_API String getSeverityName(Severity severity);
/**
 * Returns the severity with exactly this name. Throws `std::out_of_range`, "Unrecognized NIM Log Severity".
 */
DALNIM_API Severity getSeverityId(const String& name);
/**
 * Returns the name of a single bit of Mask, or of Mask_NONE. Throws `std::out_of_range`, "Unrecognized NIM
 * Log Output Mask Bit".
 */
DALNIM_API String getOutputName(unsigned int outputMaskBit);
/**
 * Returns the bit of Mask with exactly this name. Throws `std::out_of_range`, "Unrecognized NIM Log Output
 * Mask Bit".
 */
DALNIM_API unsigned int getOutputBit(const String& name);

/** Returns the number in decimal; a negative number as its unsigned 32-bit value. */
DALNIM_API String toString(int number);

/**
 * Returns the date and time as in a record, such as "Sat Nov 14 15:05:20 UTC 2026".
 *
 * @param t  seconds since the epoch; 0 for the current time
 * @return the text, in local time or UTC according to LOG_LOCALTIME
 * @throws sys::system_error  38 if the time cannot be converted to a date
 */
DALNIM_API String getDateTime(time_t t);

/** Returns the process ID. */
DALNIM_API ProcID_t getProcessId();
/** Returns the file name of the executable, without its directory. */
DALNIM_API String getProcessName();

/** Returns the default logger. The first call constructs it, in any order of static initialisation. */
DALNIM_API Log& GET_NIM_LOG_LOGGER_VAR();

/** The module of the log itself, "com.kor.dal.nim.log.internal". Changed settings are logged under it. */
extern DALNIM_API Module& INTERNAL_LOG_MODULE;

}

/**
 * The module of log statements in sources that do not declare one of their own: Module::DEFAULT_INSTANCE,
 * "global".
 */
extern DALNIM_API com::kor::dal::nim::log::Module& com_kor_dal_nim_log_module;
/** The control interface of the default logger. */
extern DALNIM_API com::kor::dal::nim::log::Control& com_kor_dal_nim_log_control;

#endif
