#ifndef TESTS_SUPPORT_VIRTUALSLOT_HPP
#define TESTS_SUPPORT_VIRTUALSLOT_HPP

#include <cstddef>
#include <cstring>

/**
 * Which slot of its virtual table a member function stands in, -1 for one that is not virtual. The
 * destructor takes two. Programs that are built against the library rely on these numbers: they
 * must not change by the way.
 */
template <class Function>
std::ptrdiff_t virtualSlot(Function function)
{
    // Itanium C++ ABI, 2.3: a pointer to a virtual function is 1 plus its offset in the table.
    std::ptrdiff_t representation[2];
    static_assert(sizeof function == sizeof representation);
    std::memcpy(representation, &function, sizeof function);
    return representation[0] % 2 == 1 ? representation[0] / static_cast<std::ptrdiff_t>(sizeof(void*)) : -1;
}

#endif
