#ifndef TESTS_SUPPORT_VIRTUALSLOT_HPP
#define TESTS_SUPPORT_VIRTUALSLOT_HPP

#include <cstddef>
#include <cstring>

/**
 * Returns the slot of a member function in its virtual table, or -1 if it is not virtual. The destructor
 * occupies two slots. The numbers are part of the ABI: programs that were built against the library rely on
 * them.
 */
template <class Function>
std::ptrdiff_t virtualSlot(Function function)
{
    std::ptrdiff_t representation[2];
    static_assert(sizeof function == sizeof representation);
    std::memcpy(representation, &function, sizeof function);
#ifdef __aarch64__
    // The C++ ABI for ARM64 allows odd addresses of code: the second part is odd if the function is virtual.
    const bool isVirtual = representation[1] % 2 == 1;
#else
    // Itanium C++ ABI, 2.3: a pointer to a virtual function is its offset in the table + 1.
    const bool isVirtual = representation[0] % 2 == 1;
#endif
    return isVirtual ? representation[0] / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

#endif
