#ifndef DALNIM_TESTS_SUPPORT_THREADSANITIZER_HPP
#define DALNIM_TESTS_SUPPORT_THREADSANITIZER_HPP

namespace support {

/** Whether this program is instrumented by the thread sanitizer, with which some tests must do less. */
#if defined(__SANITIZE_THREAD__)
constexpr bool UNDER_THREAD_SANITIZER = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool UNDER_THREAD_SANITIZER = true;
#else
constexpr bool UNDER_THREAD_SANITIZER = false;
#endif
#else
constexpr bool UNDER_THREAD_SANITIZER = false;
#endif

}

#endif
