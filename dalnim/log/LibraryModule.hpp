#ifndef DALNIM_LOG_LIBRARYMODULE_HPP
#define DALNIM_LOG_LIBRARYMODULE_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim {

namespace log {
class Module;
}

/**
 * The module of the library, "com.kor.dal.nim". Log statements in the library's sources are logged under it.
 *
 * Declared in a header of its own, which only those sources include: with `using namespace
 * com::kor::dal::nim`, a program would otherwise find two variables of this name, and its log statements
 * would not compile.
 */
extern DALNIM_API log::Module& com_kor_dal_nim_log_module;

}

#endif
