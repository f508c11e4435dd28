#ifndef FUZZ_SUPPORT_REQUIRE_HPP
#define FUZZ_SUPPORT_REQUIRE_HPP

#include <cstdlib>

/** Ends the process, which is what the fuzzer notices. */
inline void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

#endif
