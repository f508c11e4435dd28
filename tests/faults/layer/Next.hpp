#ifndef TESTS_FAULTS_LAYER_NEXT_HPP
#define TESTS_FAULTS_LAYER_NEXT_HPP

#include "Fault.hpp"

#include <atomic>
#include <cerrno>

#include <dlfcn.h>

/** Begins the definition of a function that takes precedence over that of every library. */
#define FAULTS_INTERPOSED extern "C" __attribute__((visibility("default")))

/** Defines `next`, the definition that this one hides: a sanitizer's, or the C library's own. */
#define FAULTS_NEXT(function)                                                                                \
    static std::atomic<void*> known{nullptr};                                                                \
    const auto next = reinterpret_cast<decltype(&::function)>(faults::nextOf(known, #function))

namespace faults {

/**
 * Looks the function up at the first call. Does not use a static variable with a guard: the thread sanitizer
 * replaces the guard, and is not ready for it when it makes its first calls.
 */
inline void* nextOf(std::atomic<void*>& known, const char* name) noexcept
{
    void* next = known.load(std::memory_order_relaxed);
    if (next == nullptr) {
        next = ::dlsym(RTLD_NEXT, name);
        known.store(next, std::memory_order_relaxed);
    }
    return next;
}

/** Returns true if a call that reports by `errno` must fail, and sets `errno`. */
inline bool fails(Call call) noexcept
{
    const int error = nextError(call);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

}

#endif
