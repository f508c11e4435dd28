#ifndef DALNIM_TESTS_SUPPORT_VALGRIND_HPP
#define DALNIM_TESTS_SUPPORT_VALGRIND_HPP

#include <cstdlib>

namespace support {

/** Whether `./test --long memcheck` runs the tests, beside whose own memory and descriptors they have theirs.
 */
inline bool isUnderValgrind()
{
    return std::getenv("DALNIM_TEST_VALGRIND") != nullptr;
}

}

#endif
