#ifndef DALNIM_LOG_NSDEFS_HPP
#define DALNIM_LOG_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Log records, modules, loggers and log files. */
namespace com::kor::dal::nim::log {

/** Dotted name of this namespace, as in stack traces and configuration keys. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
