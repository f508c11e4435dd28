#ifndef DALNIM_SYS_NSDEFS_HPP
#define DALNIM_SYS_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Errors, traces, host and process services, dynamic loading. */
namespace com::kor::dal::nim::sys {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
