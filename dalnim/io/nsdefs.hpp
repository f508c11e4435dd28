#ifndef DALNIM_IO_NSDEFS_HPP
#define DALNIM_IO_NSDEFS_HPP

#include <qv/pmx/api.h>

/** Properties, encodings and path queries. */
namespace com::kor::dal::nim::io {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
