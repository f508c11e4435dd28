#ifndef DALNIM_SYS_INTERNAL_NSDEFS_HPP
#define DALNIM_SYS_INTERNAL_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Internals of the library: the thread state and its helpers. */
namespace com::kor::dal::nim::sys::internal {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
