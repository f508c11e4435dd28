#ifndef DALNIM_MT_NSDEFS_HPP
#define DALNIM_MT_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Locks, tasks, threads and pools. */
namespace com::kor::dal::nim::mt {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
