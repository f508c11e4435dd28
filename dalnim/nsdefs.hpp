#ifndef DALNIM_NSDEFS_HPP
#define DALNIM_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Foundation classes for long-running server processes. */
namespace com::kor::dal::nim {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
