#ifndef DALNIM_LOG_SRC_COARSECLOCK_HPP
#define DALNIM_LOG_SRC_COARSECLOCK_HPP

#include <cstdint>
#include <ctime>

namespace com::kor::dal::nim::log {

/** Returns the monotonic time in nanoseconds, in the resolution of the kernel's tick: a fifth of the cost. */
inline std::int64_t coarseTime() noexcept
{
    constexpr std::int64_t NANOS_PER_SECOND = 1000000000;
    std::timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec * NANOS_PER_SECOND + now.tv_nsec;
}

}

#endif
