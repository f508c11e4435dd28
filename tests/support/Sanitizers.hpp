#ifndef DALNIM_TESTS_SUPPORT_SANITIZERS_HPP
#define DALNIM_TESTS_SUPPORT_SANITIZERS_HPP

#if defined(__has_feature)
#define DALNIM_TESTS_HAS_FEATURE(NAME) __has_feature(NAME)
#else
#define DALNIM_TESTS_HAS_FEATURE(NAME) false
#endif

namespace support {

/** Whether this program is instrumented by the thread sanitizer, with which some tests must do less. */
#if defined(__SANITIZE_THREAD__) || DALNIM_TESTS_HAS_FEATURE(thread_sanitizer)
constexpr bool UNDER_THREAD_SANITIZER = true;
#else
constexpr bool UNDER_THREAD_SANITIZER = false;
#endif

/**
 * Whether this program is instrumented by the address sanitizer. Its allocator does not reset its locks in
 * the child of a fork: a child hangs if another thread of its parent was in the allocator.
 */
#if defined(__SANITIZE_ADDRESS__) || DALNIM_TESTS_HAS_FEATURE(address_sanitizer)
constexpr bool UNDER_ADDRESS_SANITIZER = true;
#else
constexpr bool UNDER_ADDRESS_SANITIZER = false;
#endif

}

#undef DALNIM_TESTS_HAS_FEATURE

#endif
