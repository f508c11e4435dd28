#ifndef DALNIM_XML_NSDEFS_HPP
#define DALNIM_XML_NSDEFS_HPP

#include <qv/pmx/api.h>

/** A push parser for a small XML subset, and its consumers. */
namespace com::kor::dal::nim::xml {

/** The dotted name of this namespace, as stack traces and configuration keys show it. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
