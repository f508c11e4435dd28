#ifndef TESTS_SUPPORT_LONGRUN_HPP
#define TESTS_SUPPORT_LONGRUN_HPP

#include <cstdlib>

namespace support {

/** Whether the sizes are wanted that take their time and memory. */
inline bool isLongRun()
{
    return std::getenv("DALNIM_TEST_LONG") != nullptr;
}

}

#endif
