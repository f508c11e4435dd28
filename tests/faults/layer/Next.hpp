#ifndef TESTS_FAULTS_LAYER_NEXT_HPP
#define TESTS_FAULTS_LAYER_NEXT_HPP

#include "Fault.hpp"

#include <cerrno>

#include <dlfcn.h>

/** The definition of a function that stands before that of every library. */
#define FAULTS_INTERPOSED extern "C" __attribute__((visibility("default")))

/** The function that this one stands before: a sanitizer's, or the C library's own. */
#define FAULTS_NEXT(function) \
    static const auto next = reinterpret_cast<decltype(&::function)>(::dlsym(RTLD_NEXT, #function))

namespace faults {

/** Whether a call that reports by `errno` is to fail; it is set then. */
inline bool fails(Call call) noexcept
{
    const int error = strike(call);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

}

#endif
