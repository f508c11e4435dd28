#ifndef TESTS_SUPPORT_CPUTIME_HPP
#define TESTS_SUPPORT_CPUTIME_HPP

#include <algorithm>
#include <ctime>
#include <limits>

namespace support {

/** Returns the CPU time that this thread needs for some work, in seconds: the minimum of three runs. */
template <class Work>
double cpuTimeOf(const Work& work)
{
    const auto now = [] {
        timespec time = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    double shortest = std::numeric_limits<double>::max();
    for (int i = 0; i < 3; ++i) {
        const double start = now();
        work();
        shortest = std::min(shortest, now() - start);
    }
    return shortest;
}

}

#endif
