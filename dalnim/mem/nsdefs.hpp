#ifndef DALNIM_MEM_NSDEFS_HPP
#define DALNIM_MEM_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Intrusive reference counting. */
namespace com::kor::dal::nim::mem {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
