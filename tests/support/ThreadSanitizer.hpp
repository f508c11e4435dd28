#ifndef DALNIM_TESTS_SUPPORT_THREADSANITIZER_HPP
#define DALNIM_TESTS_SUPPORT_THREADSANITIZER_HPP

namespace support {

/** The thread sanitizer's own pthread_once() is never left by an exception: whoever asks again waits for
 * ever. */
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
