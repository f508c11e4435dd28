#ifndef DALNIM_LOG_LIBRARYMODULE_HPP
#define DALNIM_LOG_LIBRARYMODULE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim {

namespace log {
class Module;
}

/**
 * The library's own module, "com.kor.dal.nim": the sources of the library see it, so that their log
 * statements stand under it.
 *
 * It is declared apart from everything else. A program that says `using namespace com::kor::dal::nim`
 * would otherwise find two variables of this name, and none of its log statements would compile.
 */
extern DALNIM_API log::Module& com_kor_dal_nim_log_module;

}

#endif
