#ifndef TESTS_SUPPORT_LONGRUN_HPP
#define TESTS_SUPPORT_LONGRUN_HPP

#include <cstdlib>

namespace support {

/** Returns true if tests should use sizes that need much time and memory. */
inline bool isLongRun()
{
    return std::getenv("DALNIM_TEST_LONG") != nullptr;
}

}

#endif
