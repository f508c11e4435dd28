#ifndef QV_PMX_SRC_SANITIZERS_HPP
#define QV_PMX_SRC_SANITIZERS_HPP

/**
 * @file
 * The sanitizer that instruments this code: QV_ADDRESS_SANITIZER and QV_THREAD_SANITIZER are 1 or 0. g++
 * defines a macro for each sanitizer; clang provides a feature test instead.
 */

#if defined(__has_feature)
#define QV_HAS_FEATURE(NAME) __has_feature(NAME)
#else
#define QV_HAS_FEATURE(NAME) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || QV_HAS_FEATURE(address_sanitizer)
#define QV_ADDRESS_SANITIZER 1
#else
#define QV_ADDRESS_SANITIZER 0
#endif

#if defined(__SANITIZE_THREAD__) || QV_HAS_FEATURE(thread_sanitizer)
#define QV_THREAD_SANITIZER 1
#else
#define QV_THREAD_SANITIZER 0
#endif

#undef QV_HAS_FEATURE

#endif
