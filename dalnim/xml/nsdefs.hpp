#ifndef DALNIM_XML_NSDEFS_HPP
#define DALNIM_XML_NSDEFS_HPP

#include <qv/pmx/api.h>

/** A push parser for a small XML subset, and its consumers. */
namespace com::kor::dal::nim::xml {

/** Dotted name of this namespace, as used in stack traces and configuration keys. */
extern DALNIM_API const char NAMESPACE_NAME[];

}

#endif
