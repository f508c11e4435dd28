#ifndef TESTS_SUPPORT_PEAKMEMORY_HPP
#define TESTS_SUPPORT_PEAKMEMORY_HPP

#include "Valgrind.hpp"

#include <cstddef>
#include <fstream>
#include <string>

#include <malloc.h>

namespace support {

/** Measures by how much the resident memory of the process grows at most from its construction on. */
class PeakMemory
{
public:
    PeakMemory()
    {
        // Releases free memory, which would otherwise be reused and not count as growth.
        malloc_trim(0);
        // Resets the kernel's peak value. If that is not supported, the result is too high.
        std::ofstream("/proc/self/clear_refs") << 5;
        before = status("VmRSS:");
    }

    std::size_t growth() const
    {
        const std::size_t peak = status("VmHWM:");
        return peak > before ? peak - before : 0;
    }

private:
    static std::size_t status(const std::string& wanted)
    {
        std::ifstream file("/proc/self/status");
        for (std::string name; file >> name;) {
            if (name == wanted) {
                std::size_t kibibytes = 0;
                file >> kibibytes;
                return kibibytes * 1024;
            }
        }
        return 0;
    }

    std::size_t before;
};

/** Returns false with a sanitizer or valgrind, which allocate memory themselves. */
inline bool measuresMemory()
{
#ifdef DALNIM_SANITIZED
    return false;
#else
    return !isUnderValgrind();
#endif
}

}

#endif
