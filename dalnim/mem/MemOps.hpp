#ifndef DALNIM_MEM_MEMOPS_HPP
#define DALNIM_MEM_MEMOPS_HPP

#include <qv/pmx/api.h>

namespace com::kor::dal::nim::mem {

// Out of line, so that operator-> of a reference compiles to a test and a call.

/** Throws sys::system_error 22 (EINVAL), "Attempt to dereference null reference." */
[[noreturn]] DALNIM_API void throwNullDerefException();

/** Throws `std::bad_cast`. */
[[noreturn]] DALNIM_API void throwBadCastException();

}

#endif
