#ifndef DALNIM_TESTS_SUPPORT_STANDARDLIBRARY_HPP
#define DALNIM_TESTS_SUPPORT_STANDARDLIBRARY_HPP

#include <cstddef>

namespace support {

/** Whether the C++ library is libc++ instead of libstdc++. */
#ifdef _LIBCPP_VERSION
constexpr bool USES_LIBCXX = true;
#else
constexpr bool USES_LIBCXX = false;
#endif

/** The beginning of the message that std::terminate writes for an exception. */
constexpr const char* TERMINATE_MESSAGE =
    USES_LIBCXX ? "terminating with uncaught exception" : "terminate called after throwing an instance of ";

}

#endif
