#ifndef FUZZ_SUPPORT_REQUIRE_HPP
#define FUZZ_SUPPORT_REQUIRE_HPP

#include <cstdlib>

/** Aborts unless `condition` is true. The fuzzer reports the crash. */
inline void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

#endif
