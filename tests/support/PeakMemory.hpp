#ifndef TESTS_SUPPORT_PEAKMEMORY_HPP
#define TESTS_SUPPORT_PEAKMEMORY_HPP

#include "Valgrind.hpp"

#include <cstddef>
#include <fstream>
#include <string>

#include <malloc.h>

namespace support {

/** By how much the memory that the process has in use has grown at its highest, from here on. */
class PeakMemory
{
public:
    PeakMemory()
    {
        // What is free but kept would be taken again, and be no growth.
        malloc_trim(0);
        // Lets the kernel begin anew with the highest size. Where it does not, growth is told too high.
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

/** Under a sanitizer or valgrind the process takes memory of which the library knows nothing. */
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
