#ifndef DALNIM_LOG_SRC_STREAMHEADER_HPP
#define DALNIM_LOG_SRC_STREAMHEADER_HPP

/**
 * @file
 * The form of the stream header, with which each output of the default logger begins, and of the reports of
 * changed settings. Shared by the logger, which writes them, and by the tools that read logs. Constants only:
 * the tools use nothing else that the library does not export.
 */

#include <dalnim/log/Common.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

/** The fields in the first line of a stream header, whatever the output mask is. */
constexpr unsigned int STREAM_HEADER_MASK = Mask_DATETIME | Mask_HOSTNAME | Mask_PROCESSNAME | Mask_PROCESSID
                                            | Mask_THREADID | Mask_MODULENAME | Mask_SEVERITY;
/** Follows these fields, instead of TERMINATOR. */
constexpr char STREAM_HEADER_TERMINATOR[] = " Write: ";
/** The end of the first line. */
constexpr char STREAM_HEADER_TITLE[] = "Log Configuration:";

// The following lines each begin with one of these labels. The entries of the module filter follow on lines
// of their own.
constexpr char STREAM_HEADER_OUTPUT_PATH[] = "\tOutputPath:   ";
constexpr char STREAM_HEADER_OUTPUT_MASK[] = "\tOutputMask:   ";
constexpr char STREAM_HEADER_SEVERITY_MASK[] = "\tSeverityMask: ";
constexpr char STREAM_HEADER_SEVERITY_MIN[] = "\tSeverityMin:  ";
constexpr char STREAM_HEADER_MODULE_FILTER[] = "\tModuleFilter:";

/** The first line of a report, before the name of the setting. */
constexpr char CHANGE_REPORT_TITLE[] = "Changing logging setting: ";
/** The first line of the report of another output mask. */
constexpr char CHANGE_REPORT_OF_OUTPUT_MASK[] = "Changing logging setting: OutputMask";
/** The name of that setting. */
constexpr const char* OUTPUT_MASK_SETTING = CHANGE_REPORT_OF_OUTPUT_MASK + sizeof CHANGE_REPORT_TITLE - 1;
static_assert(std::string_view(CHANGE_REPORT_OF_OUTPUT_MASK).substr(0, sizeof CHANGE_REPORT_TITLE - 1)
                  == CHANGE_REPORT_TITLE,
              "a report begins with its title");
/** The beginnings of the second and the third line. */
constexpr char CHANGE_REPORT_OLD_VALUE[] = "\told: ";
constexpr char CHANGE_REPORT_NEW_VALUE[] = "\tnew: ";

/** The first line of the report of a reconfiguration, before the names of the changed settings. */
constexpr char RECONFIGURATION_TITLE[] = "Changing logging settings:";
// The name of each setting follows on a line of its own, then its values. The lines begin with these texts.
constexpr char RECONFIGURATION_SETTING[] = "\t";
constexpr char RECONFIGURATION_OF_OUTPUT_MASK[] = "\tOutputMask";
constexpr char RECONFIGURATION_OLD_VALUE[] = "\t\told: ";
constexpr char RECONFIGURATION_NEW_VALUE[] = "\t\tnew: ";

// A mask is shown as "0x14 [SEVERITY,PROCESSNAME]".
constexpr char SHOWN_MASK_NUMBER[] = "0x";
constexpr char SHOWN_MASK_NAMES[] = " [";

}

#endif
