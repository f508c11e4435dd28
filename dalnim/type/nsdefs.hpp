#ifndef DALNIM_TYPE_NSDEFS_HPP
#define DALNIM_TYPE_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Root interfaces, contexts, strings and values. */
namespace com::kor::dal::nim::type {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
