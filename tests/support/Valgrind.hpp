#ifndef DALNIM_TESTS_SUPPORT_VALGRIND_HPP
#define DALNIM_TESTS_SUPPORT_VALGRIND_HPP

#include <cstdlib>

namespace support {

/** Whether the tests run under valgrind, which has memory and descriptors of its own in the process. */
inline bool isUnderValgrind()
{
    return std::getenv("DALNIM_TEST_VALGRIND") != nullptr;
}

}

#endif
