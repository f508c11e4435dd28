#ifndef DALNIM_TESTS_SUPPORT_SANITIZERS_HPP
#define DALNIM_TESTS_SUPPORT_SANITIZERS_HPP

#include <qv/pmx/src/sanitizers.hpp>

namespace support {

/** Whether this program is instrumented by the thread sanitizer, with which some tests must do less. */
constexpr bool UNDER_THREAD_SANITIZER = QV_THREAD_SANITIZER != 0;

/**
 * Whether this program is instrumented by the address sanitizer. Its allocator does not reset its locks in
 * the child of a fork: a child hangs if another thread of its parent was in the allocator.
 */
constexpr bool UNDER_ADDRESS_SANITIZER = QV_ADDRESS_SANITIZER != 0;

}

#endif
